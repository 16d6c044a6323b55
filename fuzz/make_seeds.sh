#!/usr/bin/env bash
# Makes the seed corpus of every fuzz target in <output folder>/fuzz_<name>/:
#  1. small images (ffmpeg), embedded as artwork by the next steps;
#  2. files built with the test fixtures (make_seeds);
#  3. the input files of the shared example cases, by extension;
#  4. a fraction of a second of audio through the real encoders and taggers
#     that are installed (missing tools are passed over).
# Usage: fuzz/make_seeds.sh <make_seeds binary> <output folder> [shared folder]
# (the shared folder holding examples/, by default ../shared beside the sources)
set -uo pipefail
gen="$1"
out="$2"
src="$(cd "$(dirname "$0")/.." && pwd)"
examples="${3:-$src/../shared}/examples"

rm -rf "$out"
mkdir -p "$out"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
have() { command -v "$1" >/dev/null 2>&1; }
quiet() { "$@" >/dev/null 2>&1 || echo "make_seeds.sh: failed (passed over): $*" >&2; }

# 1. Images: 8x8 pixels in every format the artwork check knows.
mkdir -p "$work/img"
if have ffmpeg; then
  for ext in jpg png gif bmp tiff webp; do
    quiet ffmpeg -nostdin -loglevel error -f lavfi -i testsrc=size=8x8:rate=1 -frames:v 1 "$work/img/cover.$ext"
  done
  quiet ffmpeg -nostdin -loglevel error -f lavfi -i testsrc=size=8x8:rate=1 -frames:v 1 -pix_fmt gray "$work/img/gray.png"
  quiet ffmpeg -nostdin -loglevel error -f lavfi -i testsrc=size=16x16:rate=1 -frames:v 1 -pix_fmt yuv444p "$work/img/big.jpg"
fi

# 2. Fixture-built files.
"$gen" "$out" "$work/img" || exit 1

# 3. The example cases' inputs.
target_for() {
  case "${1,,}" in
    *.mp3 | *.mp2 | *.mp1) echo mp3 ;;
    *.flac) echo flac ;;
    *.ogg | *.opus | *.oga) echo ogg ;;
    *.wav) echo wav ;;
    *.aif | *.aiff | *.aifc) echo aiff ;;
    *.dsf) echo dsf ;;
    *.dff) echo dff ;;
    *.ape) echo ape ;;
    *.wv) echo wv ;;
    *.m4a | *.m4b | *.m4v | *.mp4) echo mp4 ;;
  esac
}
add() {  # add <file> <seed name>
  local t
  t="$(target_for "$1")"
  [ -n "$t" ] || return 0
  mkdir -p "$out/fuzz_$t"
  cp "$1" "$out/fuzz_$t/$2"
  if [ "$t" = mp3 ]; then
    # The ID3 reader target takes a first byte choosing its road in.
    mkdir -p "$out/fuzz_id3"
    { printf '\0'; cat "$1"; } >"$out/fuzz_id3/start_$2"
    { printf '\1'; cat "$1"; } >"$out/fuzz_id3/end_$2"
  fi
}
if [ -d "$examples" ]; then
  while IFS= read -r f; do
    rel="${f#"$examples"/}"
    add "$f" "example_$(echo "$rel" | tr '/' '_')"
  done < <(find "$examples" -path '*/input/*' -type f | sort)
fi

# 4. Real encoders and taggers.
cd "$work"
cover=img/cover.jpg
if have sox; then
  quiet sox -n -r 8000 -c 1 -b 16 tone.wav synth 0.1 sine 440
  quiet sox -n -r 8000 -c 2 -b 16 tone2.wav synth 0.1 sine 440 sine 660
  quiet sox tone.wav tone.aiff
  quiet sox tone2.wav -e signed-integer tone.aifc
elif have ffmpeg; then
  quiet ffmpeg -nostdin -loglevel error -f lavfi -i sine=frequency=440:sample_rate=8000:duration=0.1 tone.wav
  cp tone.wav tone2.wav
fi
ff() { quiet ffmpeg -nostdin -loglevel error -y "$@"; }
if [ -f tone.wav ]; then
  if have lame; then
    quiet lame --quiet -b 32 tone.wav lame_cbr.mp3
    quiet lame --quiet -V 9 tone2.wav lame_vbr.mp3
    quiet lame --quiet -b 32 --tt Title --ta Artist --tl Album --ty 2001 --tn 3/12 --tg Rock --add-id3v2 tone.wav lame_tags.mp3
    quiet lame --quiet -b 32 --id3v1-only --tt Title tone.wav lame_v1.mp3
    if have eyeD3 && [ -f lame_cbr.mp3 ]; then
      cp lame_cbr.mp3 eyed3_v24.mp3
      quiet eyeD3 -Q --title Title --artist Artist --album Album --recording-date 2001-02-03 --track 3 \
        --comment "eng:desc:Comment" --url-frame "WOAR:http://example.com/" \
        --user-text-frame "KEY:Value" --add-image "$cover:FRONT_COVER:cover" --add-popularity "a@b.c:196:7" \
        --unique-file-id "http://example.com:0123" eyed3_v24.mp3
      cp lame_cbr.mp3 eyed3_v23.mp3
      quiet eyeD3 -Q --to-v2.3 --title Title --artist Artist --add-image "$cover:OTHER" eyed3_v23.mp3
    fi
    if have id3v2 && [ -f lame_cbr.mp3 ]; then
      cp lame_cbr.mp3 id3v2_tool.mp3
      quiet id3v2 -t Title -a Artist -A Album -y 2001 -T 3/12 -g 17 -c "Comment" id3v2_tool.mp3
    fi
    if have mid3v2 && [ -f lame_cbr.mp3 ]; then
      cp lame_cbr.mp3 mid3v2_tool.mp3
      quiet mid3v2 -t Title -a Artist --TXXX "desc:value" --WXXX "http://example.com/" \
        --POPM "a@b.c:196:7" mid3v2_tool.mp3
    fi
  fi
  if have flac; then
    quiet flac -s -f -o flac_plain.flac tone.wav
    if have metaflac && [ -f flac_plain.flac ]; then
      cp flac_plain.flac flac_tagged.flac
      quiet metaflac --set-tag=TITLE=Title --set-tag=ARTIST=Artist --set-tag=DATE=2001 --set-tag=TRACKNUMBER=3 \
        --import-picture-from="$cover" --add-seekpoint=1 --add-padding=64 flac_tagged.flac
      quiet metaflac --import-picture-from="4|image/png|back|8x8x24|img/cover.png" flac_tagged.flac
    fi
  fi
  have oggenc && quiet oggenc -Q -q 0 -t Title -a Artist -c "COMMENT=c" -o vorbis.ogg tone2.wav
  have opusenc && quiet opusenc --quiet --title Title --artist Artist --picture "$cover" tone2.wav opus.opus
  if have wavpack; then
    quiet wavpack -q -y tone.wav -o wavpack.wv
    quiet wavpack -q -y -w "Title=Title" -w "Artist=Artist" tone2.wav -o wavpack_tags.wv
    quiet wavpack -q -y -hh -x tone2.wav -o wavpack_hybrid.wv
  fi
  if have ffmpeg; then
    ff -i tone.wav -c:a aac -b:a 24k -metadata title=Title -metadata artist=Artist -metadata date=2001 ff_aac.m4a
    ff -i tone.wav -c:a alac ff_alac.m4a
    ff -i tone.wav -i "$cover" -map 0 -map 1 -c:a aac -b:a 24k -c:v copy -disposition:v attached_pic ff_cover.m4a
    ff -i tone.wav -c:a pcm_s16le -metadata title=Title -metadata artist=Artist ff_info.wav
    ff -i tone.wav -c:a pcm_s16le -rf64 always ff_rf64.wav
    ff -i tone.wav -c:a pcm_s16le -write_id3v2 1 -metadata title=Title ff_id3.aiff
    ff -i tone.wav -c:a mp2 -b:a 32k ff_layer2.mp2
    ff -i tone.wav -c:a libmp3lame -b:a 32k -id3v2_version 3 -write_id3v1 1 -metadata title=Title ff_v23.mp3
    ff -i tone.wav -c:a wavpack ff_wavpack.wv
    ff -i tone.wav -c:a flac -metadata title=Title ff.flac
    ff -i tone2.wav -c:a libopus -b:a 16k ff.opus
    ff -i tone2.wav -c:a flac ff_oggflac.oga
  fi
  if have AtomicParsley && [ -f ff_aac.m4a ]; then
    cp ff_aac.m4a ap_tagged.m4a
    quiet AtomicParsley ap_tagged.m4a --title Title --artist Artist --tracknum 3/12 --disk 1/2 --genre Rock \
      --compilation true --bpm 120 --advisory clean --stik Music --artwork "$cover" --rDNSatom "v" \
      name=Custom domain=org.example --overWrite
  fi
fi
for f in *.*; do
  [ -f "$f" ] && add "$f" "encoder_$f"
done

# Files cut short and with their first bytes changed: each checker's early
# refusals (too small, wrong marker, wrong form type) from a few clean files.
for t in mp3 flac ogg wav aiff dsf dff ape wv mp4; do
  n=0
  for f in "$out/fuzz_$t"/*; do
    [ -f "$f" ] || continue
    n=$((n + 1))
    [ "$n" -le 3 ] || break
    size=$(stat -c %s "$f")
    for cut in 0 1 3 4 7 8 11 12 15 16 24 31 32 40 48 64 $((size / 2)) $((size - 1)); do
      [ "$cut" -lt "$size" ] && head -c "$cut" "$f" >"$out/fuzz_$t/cut${cut}_$n"
    done
    for at in 0 4 8 12; do
      { head -c "$at" "$f"; printf 'XXXX'; tail -c +$((at + 5)) "$f"; } >"$out/fuzz_$t/marker${at}_$n"
    done
  done
done

# The whole-scan target: its first byte picks the extension (the order of
# kExtensions in fuzz_scan.cpp) and the selection; a few files of each format.
mkdir -p "$out/fuzz_scan"
scan_seed() {  # scan_seed <target> <extension index>
  local n=0 f
  for f in "$out/fuzz_$1"/*; do
    [ -f "$f" ] || continue
    n=$((n + 1))
    [ "$n" -le 12 ] || break
    { printf "\\x$(printf %02x $(($2 | (n % 8) * 16)))"; cat "$f"; } >"$out/fuzz_scan/$1_$(basename "$f")"
  done
}
scan_seed mp3 0
scan_seed flac 2
scan_seed ogg 3
scan_seed wav 5
scan_seed aiff 7
scan_seed dsf 8
scan_seed dff 9
scan_seed ape 10
scan_seed wv 11
scan_seed mp4 12

# The verification target chooses the format from the file's own first bytes:
# the files real encoders wrote, whose audio decodes, and the crafted ones.
mkdir -p "$out/fuzz_verify"
for t in mp3 flac ogg wav aiff dsf dff ape wv mp4; do
  for f in "$out/fuzz_$t"/encoder_* "$out/fuzz_$t"/cut*_1 "$out/fuzz_$t"/marker*_1; do
    case "$t" in dsf | dff | ape) continue ;; esac
    [ -f "$f" ] && cp "$f" "$out/fuzz_verify/${t}_$(basename "$f")"
  done
done
for t in dsf dff ape; do
  for f in "$out/fuzz_$t"/*; do
    [ -f "$f" ] && cp "$f" "$out/fuzz_verify/${t}_$(basename "$f")"
  done
done

# The settings file and path target: the shipped defaults and a few files
# of settings and paths.
mkdir -p "$out/fuzz_config"
cp "$src/resources/UserDefaults.conf" "$out/fuzz_config/defaults"
printf 'LogPath=~/Documents/log.txt\nLogAllFiles=yes\nLogDups=1\nLogFixedFontSize=-3\nbroken line\n=x\n' \
  >"$out/fuzz_config/values"
printf '/a/b/c.mp3\n/a/.hidden/x.flac\n/Applications/X.app/y.m4a\n/a/B.bundle/\n~/Music/z.WAV\nrel/../x.dff\n/\n.\n' \
  >"$out/fuzz_config/paths"
printf '%s\n' /tmp /tmp/ /tmp/x.app /tmp/a.plist /proc /dev/null "$(printf 'a\377b.ogg')" >"$out/fuzz_config/real_paths"

touch "$out/.stamp"
echo "make_seeds.sh: $(find "$out" -type f ! -name .stamp | wc -l) seed files in $out"
