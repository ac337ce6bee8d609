#pragma once

#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "codecs/VideoDecoder.h"
#include "codecs/video/FileIO.h"
#include "codecs/video/FramePreparer.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace lenslark::video {

/// A film read with libavformat and libavcodec.
///
/// Only the film's own file is read: what it refers to (playlists, other files, addresses) is
/// refused, and only demuxers and decoders of films take part. Pictures have at most `maxPixels`;
/// opening, and finding the next picture, may take `patienceSeconds`.
///
/// One that falls behind leaves out pictures that no other needs; one that is far behind goes on
/// at the next key frame.
class FilmReader final : public VideoDecoder {
 public:
  /// The largest that cameras write is 8K: 8192 x 4320.
  static constexpr int maxPixels = 8192 * 4608;
  static constexpr double patienceSeconds = 20;

  /// **Fails** with Error when the file holds no video track that can be decoded.
  FilmReader(const std::string& path, int maxSide);
  ~FilmReader() override;

  const VideoInfo& info() const noexcept override { return info_; }
  std::optional<VideoFrame> next() override;
  void rewind() override;
  void setLag(double seconds) noexcept override;

 private:
  /// What is left out to catch up.
  enum class Hurry { none, unreferenced, toNextKeyFrame };

  struct FormatDeleter {
    void operator()(AVFormatContext* format) const noexcept { avformat_close_input(&format); }
  };
  struct CodecDeleter {
    void operator()(AVCodecContext* codec) const noexcept { avcodec_free_context(&codec); }
  };
  struct FrameDeleter {
    void operator()(AVFrame* frame) const noexcept { av_frame_free(&frame); }
  };
  struct PacketDeleter {
    void operator()(AVPacket* packet) const noexcept { av_packet_free(&packet); }
  };

  void openFormat();
  void chooseStream();
  void openCodec();
  void describe(int maxSide);
  /// Feeds the decoder; false at the end of the file.
  bool feed();
  bool leftOut(const AVPacket& packet) noexcept;
  double timeOf(const AVFrame& frame) noexcept;
  std::string name() const;

  static constexpr double noStamp = -std::numeric_limits<double>::infinity();

  const std::string path_;
  FileIO io_;
  std::unique_ptr<AVFormatContext, FormatDeleter> format_;
  AVStream* stream_ = nullptr;
  std::unique_ptr<AVCodecContext, CodecDeleter> codec_;
  std::unique_ptr<AVFrame, FrameDeleter> frame_;
  std::unique_ptr<AVPacket, PacketDeleter> packet_;
  std::unique_ptr<FramePreparer> preparer_;
  VideoInfo info_;

  double lastTime_ = -1;        ///< Of the latest picture.
  double lastStamp_ = noStamp;  ///< That picture's time as the film has it.
  double clockShift_ = 0;       ///< What is added to it.
  bool draining_ = false;       ///< The whole file was fed.
  Hurry hurry_ = Hurry::none;
};

}  // namespace lenslark::video
