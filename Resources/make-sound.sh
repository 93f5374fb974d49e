#!/usr/bin/env bash
# Makes "empty trash.aif", the sound played when a trash has been emptied: a handful of paper
# crackles over a rustle, a short whoosh falling in pitch, and a soft thud as it lands in the
# bin. Every part is synthesised by sox from noise or a sine; nothing is recorded.
#
# usage: make-sound.sh [OUTPUT]    (default: "empty trash.aif" beside this script)
#
# -R makes sox's noise the same on every run, so the same sox version makes the same file.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
out=${1:-$here/empty trash.aif}
rate=44100
parts=()

# voice START LENGTH EFFECTS...: one generated layer of the mix, LENGTH seconds from START.
voice() {
    local start=$1 length=$2
    shift 2
    parts+=("|sox -R -n -r $rate -c 1 -p synth $length $* pad $start")
}

# crackle START LENGTH CENTRE WIDTH GAIN: a burst of band-passed noise with a sharp attack.
crackle() {
    voice "$1" "$2" whitenoise band "$3" "$4" fade q 0.002 "$2" "$(awk "BEGIN { print $2 * 0.7 }")" \
        gain "$5"
}

crackle 0.000 0.045 3200 1800 -2
crackle 0.040 0.030 5200 2500 -5
crackle 0.075 0.050 2600 1400 -1
crackle 0.130 0.025 6000 3000 -6
crackle 0.160 0.040 3800 2000 -3
crackle 0.215 0.030 4600 2200 -5
crackle 0.250 0.035 3000 1600 -6
# The rustle under the crackles.
voice 0 0.30 pinknoise highpass 1500 lowpass 8000 tremolo 31 80 fade q 0.01 0.30 0.12 gain -10
# The fall: noise whose pitch drops by 900 cents.
voice 0.22 0.40 pinknoise gain -3 lowpass 3000 bend 0,-900,0.40 fade h 0.15 0.40 0.22
# The landing: a low sine sweeping down, and a little low noise for its body.
voice 0.58 0.22 sine 120-45 fade q 0.004 0.22 0.20 gain -3
voice 0.58 0.12 brownnoise lowpass 250 fade q 0.003 0.12 0.10 gain -6

# Mono, 44.1 kHz, 16-bit; the top softened and the peak at -3 dBFS.
sox -R -m "${parts[@]}" --comment "" -b 16 "$out" highpass 30 lowpass 10000 norm -3
