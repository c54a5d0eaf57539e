#!/usr/bin/env bash
# A whole lecture session with lxaudio, on audio made up on the spot with sox:
# narration recorded at 48 kHz and 22050 Hz with some background hiss, a music
# bed, an Ogg Vorbis outro. It imports (with noise suppression), edits, mixes,
# compresses, compacts, reopens, exports, draws a waveform and plays the result;
# then it records from a simulated microphone, kills its own recording with
# kill -9 as a crash would, and recovers it.
#
#   tools/lxaudio/demo.sh [path/to/lxaudio] [output folder]
set -euo pipefail

LXAUDIO=${1:-build/bin/lxaudio}
OUT=${2:-build/demo}
LXAUDIO=$(cd "$(dirname "$LXAUDIO")" && pwd)/$(basename "$LXAUDIO")
mkdir -p "$OUT"
OUT=$(cd "$OUT" && pwd)
cd "$OUT"
rm -rf lecture.lxp lecture-archive src ./*.wav ./*.png ./*.log .lecture*

step() { printf '\n== %s\n' "$*"; }
run() { printf '$ lxaudio %s\n' "$*" >&2; "$LXAUDIO" "$@"; }
# The clip ID on the "result: clip N" (edit) or last "clip N" line of a command's output.
result_clip() { sed -n 's/^result: clip \([0-9]*\).*/\1/p' | tail -1; }

step "Synthesising the raw material with sox"
mkdir -p src
# Narration: band-limited noise with a syllable rhythm, phrases with pauses
# between them, over a little room hiss.
phrase() { # rate seconds centre-Hz syllables-per-second file
  sox -q -n -r "$1" -c 1 -b 16 "$5" synth "$2" pinknoise band "$3" 900 tremolo "$4" 90 gain -n -8
}
phrase 48000 4.0 750 3.7 src/p1.wav
phrase 48000 3.2 820 4.2 src/p2.wav
phrase 22050 3.6 680 3.3 src/p3.wav
phrase 22050 2.8 900 4.6 src/p4.wav
sox -q src/p1.wav src/p2.wav src/intro-dry.wav pad 0.8 0 : pad 0 0.6
sox -q src/p3.wav src/p4.wav src/chapter-dry.wav pad 0.5 0 : pad 0 0.9
for name in intro chapter; do
  rate=$(soxi -r "src/$name-dry.wav")
  length=$(soxi -D "src/$name-dry.wav")
  sox -q -n -r "$rate" -c 1 -b 16 "src/$name-hiss.wav" synth "$length" whitenoise gain -n -38
  sox -q -m "src/$name-dry.wav" "src/$name-hiss.wav" "src/$name.wav"
done
# A quiet stereo music bed and an outro in Ogg Vorbis.
sox -q -n -r 44100 -c 2 -b 16 src/music.wav synth 14 sine 196 sine 294 tremolo 0.5 40 gain -n -14
phrase 44100 2.5 700 3.9 src/outro.wav
oggenc -Q -q 4 -o src/outro.ogg src/outro.wav
for f in src/intro.wav src/chapter.wav src/music.wav src/outro.ogg; do
  printf '  %-16s %s Hz, %s ch, %s s\n' "$(basename "$f")" "$(soxi -r "$f")" "$(soxi -c "$f")" "$(soxi -D "$f")"
done

step "A new project"
run new lecture.lxp

step "Importing the narration with noise suppression, one clip of both parts with a half-second gap"
run import lecture.lxp src/intro.wav src/chapter.wav --denoise --gap 5 | tee import.log
NARRATION=$(sed -n 's/^merged .* as clip \([0-9]*\).*/\1/p' import.log)
run import lecture.lxp src/music.wav src/outro.ogg | tee import2.log
MUSIC=$(sed -n 's/^imported music.wav as clip \([0-9]*\).*/\1/p' import2.log)
OUTRO=$(sed -n 's/^imported outro.ogg as clip \([0-9]*\).*/\1/p' import2.log)

step "Editing the narration: trim the silence, cut a stumble, even out the level, fade in and out"
run edit lecture.lxp "$NARRATION" trim delete 2.2s 2.6s gain 0 1.5s -3dB normalize 0 end \
  silence 4s 300ms fadein 400ms fadeout 800ms | tee edit.log
EDITED=$(result_clip < edit.log)
step "Appending the outro (insert at the end)"
run edit lecture.lxp "$EDITED" insert end "$OUTRO" 0 end | tee edit2.log
LECTURE=$(result_clip < edit2.log)

step "Mixing the lecture with the music bed underneath, fading out"
run mix lecture.lxp "$LECTURE@0" "$MUSIC@0:0.25:fadeout" -o lecture-mix.wav

step "Compressing every page to Vorbis"
run info lecture.lxp
run compress lecture.lxp

step "Compacting: keep the finished lecture only (the music and the earlier versions go)"
run compact lecture.lxp --keep "$LECTURE" | tee compact.log
RENAMED=$(sed -n "s/^clip $LECTURE -> clip \([0-9]*\).*/\1/p" compact.log)
LECTURE=${RENAMED:-$LECTURE}

step "Reopening the saved project"
run info lecture.lxp

step "Exporting the lecture at 48 kHz and drawing its waveform"
run export lecture.lxp "$LECTURE" lecture.wav --rate 48000
run waveform lecture.lxp "$LECTURE" lecture.png --width 1600 --height 300

step "The same lecture kept as a directory of chunk files"
run --dir new lecture-archive
run import lecture-archive lecture.wav
run info lecture-archive

step "Playing the first seconds of the lecture"
if ! run play lecture.lxp "$LECTURE" --to 3s 2>play-errors.log; then
  echo "($(tail -1 play-errors.log); playing on the simulated driver instead)"
  LXAUDIO_WAVE_DRIVER=simulated run play lecture.lxp "$LECTURE" --to 3s
fi

# The simulated sound card, fed the intro narration at real-time pace.
export LXAUDIO_WAVE_DRIVER=simulated LXAUDIO_SIMULATED_INPUT=src/intro.wav

step "Recording 2 s from a simulated microphone (the intro narration)"
run record lecture.lxp --seconds 2

step "Recording again, and the recording process is killed (kill -9) after 3 s, as by a crash"
printf '$ lxaudio record lecture.lxp &\n' >&2
"$LXAUDIO" -q record lecture.lxp 2>record.log &
RECORDER=$!
until grep -q "recording from device" record.log; do sleep 0.1; done
sleep 3
kill -9 "$RECORDER"
{ wait "$RECORDER"; } 2>/dev/null || echo "(lxaudio record was killed: it never saved)"

step "Nothing is lost: the next command points at it, recover lists it and adds it to the project"
run info lecture.lxp | tail -3
run recover lecture.lxp --list
run recover lecture.lxp
unset LXAUDIO_WAVE_DRIVER LXAUDIO_SIMULATED_INPUT

step "Done. Outputs in $OUT:"
for f in lecture.lxp lecture-archive lecture.wav lecture-mix.wav lecture.png; do
  printf '  %-18s %s\n' "$f" "$(du -sh "$f" | cut -f1)"
done
