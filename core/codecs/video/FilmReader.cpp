#include "codecs/video/FilmReader.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <new>
#include <thread>
#include <vector>

#include "base/Error.h"
#include "codecs/video/DisplayMatrix.h"

extern "C" {
#include <libavutil/avstring.h>
#include <libavutil/common.h>
}

namespace lenslark::video {
namespace {

/// Demuxers of film files. Those of playlists, image sequences, devices and the like are missing on
/// purpose: they open what they are told to.
constexpr const char* allowedFormats =
    "mov,matroska,avi,gif,apng,mpegts,mpeg,mpegvideo,m4v,flv,ogg,asf,ivf,h264,hevc,obu";

/// What phones, cameras, screen recorders, browsers and editors write. libavcodec has several
/// hundred more decoders, which a film's header could call up.
constexpr const char* allowedDecoders =
    "h264,hevc,vp8,vp9,libdav1d,libaom-av1,av1,mpeg4,h263,mjpeg,prores,gif,apng,png,mpeg1video,"
    "mpeg2video,theora,wmv1,wmv2,wmv3,vc1,msmpeg4v2,msmpeg4,flv,dvvideo,dnxhd,cfhd,qtrle,svq3,"
    "ffv1,huffyuv,ffvhuff,utvideo,rawvideo";

/// Opening may read this much before it gives up on a file.
constexpr std::int64_t probeBytes = 32 << 20;

/// More than any picture is decoded before it is shown.
constexpr std::int64_t decodingLeadSeconds = 60;

/// Time stamps that go back by more belong to another recording, which was strung to the one
/// before: it follows it, instead of being late as a whole.
constexpr double clockResetSeconds = 0.5;

/// A film that is this late skips what no other picture needs; that late, up to a key frame.
constexpr double lateSeconds = 0.25;
constexpr double veryLateSeconds = 1.5;

std::string libavMessage(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  return text.data();
}

/// Films name other files (external references, playlists); none of them is opened.
int refuseToOpen(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
  return AVERROR(EACCES);
}

template <typename Pointer>
Pointer* checked(Pointer* pointer) {
  if (pointer == nullptr) throw std::bad_alloc();
  return pointer;
}

bool isAllowed(const AVCodec& decoder) noexcept {
  return av_match_list(decoder.name, allowedDecoders, ',') != 0;
}

/// Decodes a little of each stream to learn what it holds, within the bound on pictures.
int findStreams(AVFormatContext& format) {
  std::vector<AVDictionary*> options(format.nb_streams, nullptr);
  for (AVDictionary*& own : options) {
    av_dict_set_int(&own, "max_pixels", FilmReader::maxPixels, 0);
  }
  const int result = avformat_find_stream_info(&format, options.data());
  for (AVDictionary*& own : options) av_dict_free(&own);
  return result;
}

double seconds(AVRational rate) noexcept { return rate.den == 0 ? 0 : av_q2d(rate); }

/// A side of a picture whose longer side is held to `maxSide`: even, rounded down, as the feed cuts
/// what it shrinks itself. A picture shrunk here must not come out a row larger than one there.
int shrunkSide(int side, int longer, int maxSide) noexcept {
  const auto whole = static_cast<int>(std::int64_t{side} * maxSide / longer);
  return std::max(whole / 2 * 2, 1);
}

Size shownSize(Size size, int maxSide) noexcept {
  const int longer = size.longerSide();
  if (longer <= maxSide) return size;
  return {shrunkSide(size.width, longer, maxSide), shrunkSide(size.height, longer, maxSide)};
}

}  // namespace

FilmReader::FilmReader(const std::string& path, int maxSide)
    : path_(path),
      io_(path),
      frame_(checked(av_frame_alloc())),
      packet_(checked(av_packet_alloc())) {
  io_.setPatience(patienceSeconds);
  openFormat();
  chooseStream();
  openCodec();
  describe(maxSide);
}

FilmReader::~FilmReader() = default;

std::string FilmReader::name() const { return std::filesystem::path(path_).filename().string(); }

void FilmReader::openFormat() {
  AVFormatContext* format = checked(avformat_alloc_context());
  format->pb = io_.context();
  format->flags |= AVFMT_FLAG_CUSTOM_IO;
  format->io_open = &refuseToOpen;
  format->probesize = probeBytes;
  format->interrupt_callback = {
      [](void* io) -> int { return static_cast<FileIO*>(io)->overdue() ? 1 : 0; }, &io_};
  AVDictionary* options = nullptr;
  av_dict_set(&options, "format_whitelist", allowedFormats, 0);
  av_dict_set(&options, "codec_whitelist", allowedDecoders, 0);
  av_dict_set(&options, "protocol_whitelist", "none", 0);
  av_dict_set(&options, "max_streams", "64", 0);
  // Frees the context when it fails.
  int result = avformat_open_input(&format, nullptr, nullptr, &options);
  av_dict_free(&options);
  if (result >= 0) {
    format_.reset(format);
    result = findStreams(*format);
  }
  if (result < 0) {
    throw Error(fmt::format("{} cannot be read as a film: {}", name(), libavMessage(result)));
  }
}

void FilmReader::chooseStream() {
  for (unsigned index = 0; index < format_->nb_streams; ++index) {
    AVStream* stream = format_->streams[index];
    const bool film = stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                      (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    if (film && stream_ == nullptr) {
      stream_ = stream;
    } else {
      stream->discard = AVDISCARD_ALL;
    }
  }
  if (stream_ == nullptr) {
    throw Error(name() + " has no video track");
  }
}

void FilmReader::openCodec() {
  const AVCodecParameters& parameters = *stream_->codecpar;
  const AVCodec* decoder = avcodec_find_decoder(parameters.codec_id);
  if (decoder == nullptr || !isAllowed(*decoder)) {
    throw Error(fmt::format("{} is coded as {}, for which there is no decoder", name(),
                            avcodec_get_name(parameters.codec_id)));
  }
  codec_.reset(checked(avcodec_alloc_context3(decoder)));
  int result = avcodec_parameters_to_context(codec_.get(), &parameters);
  codec_->pkt_timebase = stream_->time_base;
  codec_->max_pixels = maxPixels;
  codec_->thread_count = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 4U));
  if (result >= 0) result = avcodec_open2(codec_.get(), decoder, nullptr);
  if (result < 0) {
    throw Error(fmt::format("{} cannot be decoded: {}", name(), libavMessage(result)));
  }
}

void FilmReader::describe(int maxSide) {
  const AVCodecParameters& parameters = *stream_->codecpar;
  const Size stored{parameters.width, parameters.height};
  if (stored.empty() || static_cast<std::int64_t>(stored.width) * stored.height > maxPixels) {
    throw Error(fmt::format("{} has pictures of {} x {} pixels, which cannot be shown", name(),
                            stored.width, stored.height));
  }
  const Orientation orientation = orientationOf(*stream_);
  const Size square =
      squarePixels(stored, av_guess_sample_aspect_ratio(format_.get(), stream_, nullptr));
  info_.size = orientation.apply(square);
  info_.durationSec =
      format_->duration > 0 ? static_cast<double>(format_->duration) / AV_TIME_BASE : 0;
  info_.nominalFps = seconds(stream_->avg_frame_rate);
  if (info_.nominalFps <= 0) info_.nominalFps = seconds(stream_->r_frame_rate);
  preparer_ = std::make_unique<FramePreparer>(orientation, shownSize(info_.size, maxSide));
}

std::optional<VideoFrame> FilmReader::next() {
  io_.setPatience(patienceSeconds);
  while (!io_.overdue()) {
    const int result = avcodec_receive_frame(codec_.get(), frame_.get());
    if (result == AVERROR(EAGAIN)) {
      if (!feed()) return std::nullopt;
      continue;
    }
    if (result == AVERROR_EOF) return std::nullopt;
    if (result < 0) continue;  // a broken picture; the decoder goes on with the next
    const double time = timeOf(*frame_);
    FramePtr picture = preparer_->prepare(*frame_);
    av_frame_unref(frame_.get());
    if (picture != nullptr) return VideoFrame{std::move(picture), time};
  }
  throw Error(fmt::format("{} cannot be played on: no picture came for {} seconds", name(),
                          patienceSeconds));
}

bool FilmReader::feed() {
  if (draining_) return false;
  const int result = av_read_frame(format_.get(), packet_.get());
  if (result < 0) {
    draining_ = true;
    avcodec_send_packet(codec_.get(), nullptr);
    return true;
  }
  // A packet that the decoder refuses is broken: the film goes on with the next one.
  if (packet_->stream_index == stream_->index && !leftOut(*packet_)) {
    avcodec_send_packet(codec_.get(), packet_.get());
  }
  av_packet_unref(packet_.get());
  return true;
}

bool FilmReader::leftOut(const AVPacket& packet) noexcept {
  if (hurry_ == Hurry::toNextKeyFrame) {
    if ((packet.flags & AV_PKT_FLAG_KEY) == 0) return true;
    avcodec_flush_buffers(codec_.get());  // nothing after a key frame needs what was before it
    hurry_ = Hurry::none;
  }
  codec_->skip_frame = hurry_ == Hurry::unreferenced ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
  return false;
}

double FilmReader::timeOf(const AVFrame& frame) noexcept {
  std::int64_t start = 0;
  if (format_->start_time != AV_NOPTS_VALUE) {
    start = av_rescale_q(format_->start_time, {1, AV_TIME_BASE}, stream_->time_base);
  } else if (stream_->start_time != AV_NOPTS_VALUE) {
    start = stream_->start_time;
  }
  const double step = info_.nominalFps > 0 ? 1 / info_.nominalFps : 1.0 / 30;
  double time = 0;
  if (frame.best_effort_timestamp != AV_NOPTS_VALUE) {
    const double stamp =
        static_cast<double>(frame.best_effort_timestamp - start) * av_q2d(stream_->time_base);
    if (stamp < lastStamp_ - clockResetSeconds) clockShift_ = lastTime_ + step - stamp;
    lastStamp_ = stamp;
    time = stamp + clockShift_;
  } else if (lastTime_ >= 0) {
    time = lastTime_ + step;
  }
  lastTime_ = std::max({time, lastTime_, 0.0});
  return lastTime_;
}

void FilmReader::rewind() {
  io_.setPatience(patienceSeconds);
  // Most formats look for when pictures are decoded, which is before they are shown.
  const bool soughtAsShown = (format_->iformat->flags & AVFMT_SEEK_TO_PTS) != 0;
  const std::int64_t start = stream_->start_time == AV_NOPTS_VALUE ? 0 : stream_->start_time;
  const std::int64_t lead = av_rescale_q(decodingLeadSeconds, {1, 1}, stream_->time_base);
  int result = AVERROR(ENOSYS);
  const auto seek = [&](std::int64_t time) {
    result = av_seek_frame(format_.get(), stream_->index, time, AVSEEK_FLAG_BACKWARD);
  };
  if (!soughtAsShown) seek(av_sat_sub64(start, lead));
  if (result < 0) seek(start);
  if (result < 0) result = av_seek_frame(format_.get(), stream_->index, 0, AVSEEK_FLAG_BYTE);
  if (result < 0) {
    throw Error(fmt::format("{} cannot be played again: {}", name(), libavMessage(result)));
  }
  avcodec_flush_buffers(codec_.get());
  draining_ = false;
  lastTime_ = -1;
  lastStamp_ = noStamp;
  clockShift_ = 0;
  hurry_ = Hurry::none;
}

void FilmReader::setLag(double seconds) noexcept {
  if (seconds > veryLateSeconds) {
    hurry_ = Hurry::toNextKeyFrame;
  } else if (seconds > lateSeconds) {
    hurry_ = Hurry::unreferenced;
  } else {
    hurry_ = Hurry::none;
  }
}

}  // namespace lenslark::video
