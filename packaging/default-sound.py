#!/usr/bin/env python3
"""Makes the sound that a new system plays: a slow, quiet run of chords, 8000 Hz, 16 bits, mono, that repeats without a
seam. Every run gives the same bytes.

usage: default-sound.py FILE.wav
"""
import math
import struct
import sys
import wave

RATE = 8000
CHORD_SECONDS = 4
PEAK = 9000  # of 32767: about 11 dB below full scale
# Four chords, each of notes in half tones above A3 (220 Hz).
CHORDS = [(0, 7, 12, 16), (-4, 3, 12, 15), (-9, 3, 7, 12), (-2, 5, 10, 14)]


def tone(note, second):
    frequency = 220.0 * 2.0 ** (note / 12.0)
    # Whole periods in each chord, so that nothing clicks where one meets the next.
    frequency = round(frequency * CHORD_SECONDS) / CHORD_SECONDS
    return math.sin(2 * math.pi * frequency * second) + 0.25 * math.sin(4 * math.pi * frequency * second)


def samples():
    for chord in CHORDS:
        for index in range(RATE * CHORD_SECONDS):
            second = index / RATE
            swell = math.sin(math.pi * second / CHORD_SECONDS) ** 2
            yield swell * sum(tone(note, second) for note in chord)


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip().splitlines()[-1])
    wanted = list(samples())
    scale = PEAK / max(abs(sample) for sample in wanted)
    with wave.open(sys.argv[1], "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(RATE)
        out.writeframes(b"".join(struct.pack("<h", round(sample * scale)) for sample in wanted))


if __name__ == "__main__":
    main()
