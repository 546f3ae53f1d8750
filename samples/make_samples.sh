#!/bin/sh
# Makes the streams in this directory with ffmpeg and its libx264 encoder (Debian: ffmpeg).
# Usage: samples/make_samples.sh [DIRECTORY]   (default: the directory of this script)
set -eu

out=${1:-$(dirname "$0")}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# One thread and code that is the same on every processor: the output depends on the encoder's version alone.
fixed="threads=1:lookahead-threads=1:cpu-independent=1"

# encode OUTPUT SOURCE FILTERS X264-PARAMETERS [OPTION...]
encode() {
    file=$1 source=$2 filters=$3 params=$4
    shift 4
    ffmpeg -nostdin -hide_banner -loglevel warning -f lavfi -i "$source" -vf "$filters" -c:v libx264 -preset medium \
        "$@" -x264-params "$fixed:$params" -flags:v +bitexact -fflags +bitexact -f h264 -y "$file"
}

# Two fields a frame, the top one first.
top_field_first="interlace=scan=tff:lowpass=linear,setfield=tff"
colour_625="colorprim=bt470bg:transfer=bt470bg:colormatrix=bt470bg"
colour_525="colorprim=smpte170m:transfer=smpte170m:colormatrix=smpte170m"

# 25 frames at 25 frames/s, VBR, closed GOPs.
encode "$work/first.h264" "testsrc2=size=352x288:rate=50:duration=1" "$top_field_first,setsar=12/11" \
    "tff=1:nal-hrd=vbr:pic-struct=1:aud=1:keyint=12:min-keyint=12:scenecut=0:weightp=0:bframes=2:b-adapt=0:ref=2\
:videoformat=pal:$colour_625" \
    -pix_fmt yuv420p -level 2.1 -b:v 500k -maxrate 600k -bufsize 300k

# 30 frames at 30000/1001 frames/s, CBR with filler data, open GOPs, two slices a picture, another size and level.
encode "$work/second.h264" "testsrc2=size=480x272:rate=60000/1001:duration=1" "$top_field_first,setsar=10/11" \
    "tff=1:nal-hrd=cbr:force-cfr=1:pic-struct=1:aud=1:keyint=15:min-keyint=15:scenecut=0:open-gop=1:bframes=3\
:b-pyramid=none:b-adapt=0:ref=3:slices=2:weightp=0:qpmin=30:overscan=show:chromaloc=0:videoformat=ntsc:$colour_525" \
    -pix_fmt yuv420p -level 3 -b:v 800k -maxrate 800k -bufsize 400k

cat "$work/first.h264" "$work/second.h264" > "$out/interlaced_hrd.h264"

# 12 frames at 24 frames/s, 4:2:2 with 10 bits, odd size, no HRD.
encode "$out/progressive_422.h264" "testsrc2=size=178x100:rate=24:duration=0.5" "setsar=1,fade=in:0:12" \
    "bframes=3:ref=2:keyint=12:scenecut=0:videoformat=component:fullrange=on" \
    -pix_fmt yuv422p10le -crf 34
