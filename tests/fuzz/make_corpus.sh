#!/bin/sh
# Writes the seeds of the film and picture targets anew, from pictures that ffmpeg draws itself: one
# small file for each container and codec, and one for each format of pictures.
set -eu
cd "$(dirname "$0")/corpus"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

film() {
  name=$1
  shift
  ffmpeg -nostdin -v error -y -f lavfi -i "testsrc2=size=160x120:rate=10:duration=0.4,scale=${size:-48x32}" \
    -fflags +bitexact -flags +bitexact "$@" "film/$name"
}

quiet=log-level=none:info=0
film h264.mp4 -c:v libx264 -bf 1 -g 3 -pix_fmt yuv420p -bsf:v filter_units=remove_types=6
film h264-late.mp4 -c:v libx264 -bf 2 -pix_fmt yuv420p -output_ts_offset 0.3 \
  -bsf:v filter_units=remove_types=6
film h264.mov -c:v libx264 -pix_fmt yuv422p10le -bsf:v filter_units=remove_types=6
film h264.mkv -c:v libx264 -pix_fmt yuv444p -bsf:v filter_units=remove_types=6
film h264.flv -c:v libx264 -pix_fmt yuv420p -bsf:v filter_units=remove_types=6
film h264.ts -c:v libx264 -pix_fmt yuv420p -bsf:v filter_units=remove_types=6
film h264.h264 -c:v libx264 -pix_fmt yuv420p -bsf:v filter_units=remove_types=6
size=64x64 film hevc.mp4 -c:v libx265 -x265-params $quiet -pix_fmt yuv420p -tag:v hvc1
size=64x64 film hevc-hdr.mkv -c:v libx265 -x265-params $quiet -pix_fmt yuv420p10le -colorspace bt2020nc \
  -color_trc smpte2084 -color_primaries bt2020
film vp8.webm -c:v libvpx -threads 1 -pix_fmt yuv420p
film vp9.webm -c:v libvpx-vp9 -pix_fmt yuv420p
film av1.mp4 -c:v libaom-av1 -cpu-used 8 -pix_fmt yuv420p
film mpeg4.avi -c:v mpeg4 -q:v 9
film mjpeg.avi -c:v mjpeg -q:v 9 -pix_fmt yuvj420p
film mjpeg422.mov -c:v mjpeg -q:v 9 -pix_fmt yuvj422p
film prores.mov -c:v prores_ks -profile:v 0
size=32x16 film prores4444.mov -c:v prores_ks -profile:v 4 -qscale 20 -pix_fmt yuva444p10le
film gif.gif
film apng.apng -f apng
film mpeg2.mpg -c:v mpeg2video -q:v 9 -r 25
film theora.ogv -c:v libtheora
film wmv.wmv -c:v wmv2 -q:v 9
size=33x17 film odd-vp9.webm -c:v libvpx-vp9 -pix_fmt yuv420p
# As a phone writes it: with sound, and turned.
ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=160x120:rate=10:duration=0.4,scale=48x32 \
  -f lavfi -i sine=duration=0.4 -c:v libx264 -pix_fmt yuv420p -c:a aac -b:a 16k -ac 1 \
  -bsf:v filter_units=remove_types=6 "$work/upright.mp4"
ffmpeg -nostdin -v error -y -i "$work/upright.mp4" -c copy -metadata:s:v rotate=90 \
  -fflags +bitexact -movflags +faststart film/turned.mp4

picture() {
  (cd "$work" && eval "$2")
  mv "$work/$1" "picture/$1"
}

ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=160x120,scale=48x32 -frames:v 1 -fflags +bitexact \
  -pix_fmt rgb24 "$work/a.png"
ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=160x120,scale=48x32,format=rgba -frames:v 1 \
  -fflags +bitexact "$work/alpha.png"
picture rgb.png "vips copy a.png rgb.png[strip]"
picture alpha-palette.png "vips copy alpha.png alpha-palette.png[strip,palette]"
picture deep.png "ffmpeg -nostdin -v error -y -i a.png -pix_fmt rgb48be -fflags +bitexact deep.png"
picture baseline.jpg "vips copy a.png baseline.jpg[Q=60,strip]"
picture progressive.jpg "vips copy a.png progressive.jpg[Q=60,strip,interlace]"
picture cmyk.jpg "vips icc_export a.png cmyk.v --output-profile cmyk && vips copy cmyk.v cmyk.jpg[Q=60,strip]"
picture turned.jpg "vips copy a.png turned.jpg[Q=60] &&
  exiftool -q -n -Orientation=6 -overwrite_original turned.jpg"
picture animated.gif "ffmpeg -nostdin -v error -y -f lavfi \
  -i testsrc2=size=160x120:rate=5:duration=0.4,scale=32x24 -fflags +bitexact animated.gif"
picture lossy.webp "vips copy a.png lossy.webp[Q=50,strip]"
picture lossless.webp "vips copy alpha.png lossless.webp[lossless,strip]"
picture strips.tif "vips copy a.png strips.tif[compression=deflate,strip]"
picture tiles.tif "vips copy a.png tiles.tif[tile,tile-width=16,tile-height=16,compression=lzw,strip]"
picture hevc.heic "heif-enc -q 40 a.png -o hevc.heic"
picture av1.avif "heif-enc -A -q 40 alpha.png -o av1.avif"
picture lossy.jxl "cjxl --quiet a.png lossy.jxl -d 4"
picture lossless.jxl "cjxl --quiet alpha.png lossless.jxl -d 0"
picture rgb.bmp "ffmpeg -nostdin -v error -y -i a.png -vf scale=24:16 rgb.bmp"
picture palette.bmp "ffmpeg -nostdin -v error -y -i a.png -pix_fmt pal8 palette.bmp"
cat > picture/shapes.svg <<'SVG'
<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 48 32"><rect width="24" height="16" fill="red"/>
<circle cx="36" cy="24" r="8" fill="#08f"/></svg>
SVG
