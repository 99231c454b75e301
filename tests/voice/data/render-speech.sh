#!/bin/sh
# Renders the speech of the echo-room test as 24 kHz mono 16-bit WAV files into $3.
# Usage: render-speech.sh ESPEAK-NG SOX FOLDER
set -e
espeak=$1
sox=$2
out=$3
mkdir -p "$out"
"$espeak" -v en-us -s 165 -w "$out/agent-raw.wav" "Here is what I found about your flight tomorrow. \
The plane leaves at nine forty from gate twelve, and the weather in Lisbon looks clear with a light \
wind from the north. I also moved your meeting with the design team to Thursday afternoon, and sent \
a note to Maria so she knows about the change. Shall I book a taxi to the airport as well?"
"$espeak" -v en-us+f3 -s 170 -w "$out/user-raw.wav" "Wait, stop, I need to change the time first."
"$sox" "$out/agent-raw.wav" -r 24000 -c 1 -b 16 "$out/agent.wav"
"$sox" "$out/user-raw.wav" -r 24000 -c 1 -b 16 "$out/user.wav"
rm -f "$out/agent-raw.wav" "$out/user-raw.wav"
