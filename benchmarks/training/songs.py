"""Composes songs in the genres of genres.toml, by fixed rules and random choices."""

import tomllib
from dataclasses import dataclass
from pathlib import Path
from typing import TypeVar

import mido
import numpy as np

DRUMS = {  # General MIDI notes
    "KICK": 36,
    "RIM": 37,
    "SNARE": 38,
    "CLAP": 39,
    "HAT": 42,
    "PEDAL": 44,
    "OPEN": 46,
    "CRASH": 49,
    "RIDE": 51,
    "TOM": 45,
    "SHAKER": 70,
    "TAMB": 54,
    "COWBELL": 56,
    "CONGA_HI": 63,
    "CONGA_LO": 64,
    "CLAVE": 75,
}
VELOCITY = {"x": 112, "o": 88, "g": 52}
Item = TypeVar("Item")

PAD_PROGRAMS = (48, 49, 44, 45, 88, 89, 90, 91, 94, 95, 50)
DISTORTED_GUITARS = [29, 30]

SCALES = {
    "major": (0, 2, 4, 5, 7, 9, 11),
    "mixolydian": (0, 2, 4, 5, 7, 9, 10),
    "minor": (0, 2, 3, 5, 7, 8, 10),
    "harmonic": (0, 2, 3, 5, 7, 8, 11),
    "dorian": (0, 2, 3, 5, 7, 9, 10),
}
# Chords as scale degrees, counted from 0. M makes a chord major, as for the dominant in a minor key.
PROGRESSIONS = {
    mode: text.split(", ")
    for mode, text in {
        "major": "0 4 5 3, 0 5 3 4, 0 3 4 3, 0 3 0 4, 0 2 3 4, 0 1 4 0, 0 5 1 4, 0 3 4 0, 0 4 3 4, 0 0 3 0, "
        "0 4 0 4, 5 3 0 4, 3 4 5 0, 3 0 4 5, 0 3 1 4, 0 0 3 3 0 4 0 0, 1 4 0 0, 0 4 5 2 3 0 3 4",
        "mixolydian": "0 6 3 0, 0 3 6 0, 0 6 0 6, 0 3 0 6, 0 0 6 3",
        "minor": "0 5 2 6, 0 3 4 0, 0 6 5 6, 0 5 3 4, 0 3 6 2, 0 0 5 6, 0 2 6 3, 0 6 0 6, 0 0 0 0, 0 5 6 0, "
        "5 6 0 0, 0 3 0 5, 0 6 5 4M",
        "harmonic": "0 3 4M 0, 0 5 3 4M, 0 4M 0 4M, 0 3 0 4M, 0 5 4M 4M, 0 6 5 4M, 0 0 3 4M",
        "dorian": "0 3 0 3, 0 6 3 0, 0 3 6 0, 0 1 0 3, 0 0 3 3",
    }.items()
}


@dataclass
class Genre:
    tempi: list[float]  # slowest and fastest, in BPM
    # Patterns to choose from, with a character for each step: "x" accented, "o" normal, "g" soft, "." silent.
    drums: list[dict[str, str]]
    bass: list[str]
    comp: list[str]
    comp_programs: list[int]
    bass_programs: list[int]
    lead_programs: list[int]
    lead: float = 0.5  # density of the melody
    beats: int = 4
    swing: tuple[float, ...] = (0.5,)
    humanize: float = 0.004
    chord_bars: tuple[float, ...] = (1,)
    texture: str = ""  # for classical music, which has no patterns: "chorale", "melody" or "sonata"
    alternative: float = 0  # another tempo that listeners would accept, as a multiple of the tempo; 0 if none


GENRES = {
    name: Genre(**values)
    for name, values in tomllib.loads(Path(__file__).with_name("genres.toml").read_text(encoding="utf-8")).items()
}
# These genres are chosen more often than the others.
COMMON = (
    "chorale",
    "melody",
    "sonata",
    "sonata",
    "house",
    "hiphop",
    "trap",
    "dnb",
    "rock",
    "ballad",
    "waltz",
    "reggae",
    "shuffle",
    "piano",
    "pop",
)


class Song:
    def __init__(self, seed: int) -> None:
        self.rng = rng = np.random.default_rng(seed)
        names = list(GENRES) + list(COMMON) * 2
        self.genre_name = names[seed % len(names)]
        self.genre = genre = GENRES[self.genre_name]
        self.bpm = round(float(np.exp(rng.uniform(*np.log(genre.tempi)))), int(rng.choice([0, 1, 2, 4])))
        self.mode = str(rng.choice(list(SCALES), p=[0.45, 0.06, 0.25, 0.14, 0.1]))
        self.tonic = int(rng.integers(12))
        self.loop = rng.random() < 0.15
        self.synthetic = 0.35
        self.steps = len(genre.bass[0])
        self.step_beats = genre.beats / self.steps
        self.swing = float(rng.choice(genre.swing))
        self.drift = float(rng.uniform(-0.03, 0.03)) if not self.loop and rng.random() < 0.08 else 0.0
        self.num_beats = 1
        self.has_key = True
        self.notes: list[tuple[float, float, int, int, int]] = []  # beat, length, channel, pitch, velocity
        self.programs = [
            int(rng.choice(p)) for p in (genre.comp_programs, genre.bass_programs, genre.lead_programs, PAD_PROGRAMS)
        ]
        if genre.texture:
            self.compose_classical()
        else:
            self.compose()

    def pick(self, items: list[Item]) -> Item:
        return items[self.rng.integers(len(items))]

    def beat(self, bar: int, step: float) -> float:
        position = step * self.step_beats
        if self.steps % 3 and self.swing != 0.5:  # swung sixteenths
            pair, inside = divmod(step, 2)
            position = self.step_beats * (2 * pair + (inside * self.swing * 2 if inside <= 1 else inside))
        return bar * self.genre.beats + position

    def add(self, beat: float, length: float, channel: int, pitch: int, velocity: float) -> None:
        late = self.rng.normal(0, self.genre.humanize * self.tightness) * self.bpm / 60
        late += self.drift * self.num_beats / (2 * np.pi) * np.sin(2 * np.pi * beat / self.num_beats)
        loud = int(np.clip(velocity + self.rng.normal(0, 6), 1, 127))
        self.notes.append((max(0.0, beat + late), length, channel, int(pitch), loud))

    def chords(self, num_bars: int) -> list[tuple[int, list[int]]]:
        """Returns the root and the pitch classes of each half bar's chord, relative to the tonic."""
        rng, scale = self.rng, SCALES[self.mode]
        degrees = self.pick(PROGRESSIONS[self.mode]).split()
        bars_each = float(rng.choice(self.genre.chord_bars))
        sevenths = rng.random() < (0.7 if self.genre_name in ("jazz", "lofi", "rnb", "bossa", "funk") else 0.12)
        result = []
        for half in range(num_bars * 2):
            name = degrees[int(half / 2 / bars_each) % len(degrees)]
            if half >= num_bars * 2 - 2 and not self.loop and rng.random() < 0.7:
                name = "0"
            degree = int(name[0])
            natural = SCALES["minor"] if self.mode == "harmonic" and "M" not in name else scale
            tones = [natural[(degree + 2 * i) % 7] for i in range(4 if sevenths else 3)]
            if "M" in name:
                tones[1] = (natural[degree] + 4) % 12
            if self.genre.comp_programs == DISTORTED_GUITARS and rng.random() < 0.8:
                tones = [tones[0], tones[2]]
            result.append((natural[degree], tones))
        return result

    def compose(self) -> None:
        rng, genre = self.rng, self.genre
        self.tightness = float(rng.choice([0, 0.7, 1, 1.5]))
        seconds = float(rng.uniform(4, 12) if self.loop else rng.uniform(20, 40))
        unit = 1 if self.loop else 4
        num_bars = max(unit, round(seconds * self.bpm / 60 / genre.beats / unit) * unit)
        self.num_bars, self.num_beats = num_bars, num_bars * genre.beats
        chords = self.chords(num_bars)
        drums, bass, comp = self.pick(genre.drums), self.pick(genre.bass), self.pick(genre.comp)
        fill = rng.random() < 0.6
        layers = rng.random(5) < (0.95, 0.9, 0.9, 0.6, 0.35)  # drums, bass, comp, lead, pad
        if not layers[:4].any() or (not drums and not layers[1:3].any()):
            layers[:3] = True
        if rng.random() < 0.15:  # like a stem, or a loop from a sample pack
            layers = np.isin(np.arange(5), rng.choice(5 if drums else [1, 2, 3], rng.choice([1, 1, 2]), replace=False))
            self.has_key = layers[1:].any()
        has_intro = not self.loop and rng.random() < 0.3
        arpeggio = rng.random() < 0.35 or comp.count("o") >= 8
        for bar in range(num_bars):
            intro = has_intro and bar < num_bars // 4
            if drums and layers[0] and not intro:
                self.play_drums(bar, drums, fill and bar % 4 == 3)
            if layers[1] and not (intro and rng.random() < 0.5):
                self.play_bass(bar, bass, chords)
            if layers[2]:
                self.play_chords(bar, comp, chords, arpeggio)
            if layers[4]:
                for half in (0, 1):
                    self.hold(bar, half, chords[bar * 2 + half][1])
        if layers[3]:
            self.play_melody(chords)

    def compose_classical(self) -> None:
        """Composes functional harmony in phrases of eight beats, in related keys and in one of three textures."""
        rng, texture = self.rng, self.genre.texture
        self.loop, self.synthetic, self.swing, self.tightness = False, 0, 0.5, 1.0
        self.mode = "major" if rng.random() < 0.6 else "harmonic"
        self.programs[0] = int(rng.choice(self.genre.comp_programs))
        num_phrases = max(2, round(rng.uniform(15, 45) * self.bpm / 60 / 8))
        self.num_bars = num_phrases * 2
        related = (
            [(7, "major"), (9, "harmonic"), (5, "major"), (2, "harmonic")]
            if self.mode == "major"
            else [(3, "major"), (7, "harmonic"), (5, "harmonic"), (8, "major")]
        )
        home, second = (0, self.mode), related[0]
        keys = [
            home if rng.random() < 0.65 else related[rng.choice(4, p=[0.55, 0.2, 0.15, 0.1])]
            for _ in range(num_phrases)
        ]
        keys[0], keys[-1] = home, home
        if texture == "melody" and rng.random() < 0.7:
            keys = [home] * num_phrases
        if texture == "sonata":
            turn = rng.uniform(0.3, 0.7) * num_phrases
            back = num_phrases if rng.random() < 0.6 else rng.uniform(0.75, 0.95) * num_phrases
            keys = [second if turn <= phrase < back else home for phrase in range(num_phrases)]
        self.voices = [72, 65, 57, 48]
        for phrase, (offset, mode) in enumerate(keys):
            is_last = phrase == num_phrases - 1
            chords = self.phrase_chords(
                is_last or rng.random() < 0.7, 1 if texture == "chorale" else int(rng.choice([1, 2, 2, 4]))
            )
            for index, degree in enumerate(chords):
                scale = SCALES[mode] if degree in (4, 6) or mode == "major" else SCALES["minor"]
                tones = [
                    (scale[(degree + 2 * i) % 7] + offset) % 12
                    for i in range(4 if degree == 4 and rng.random() < 0.3 else 3)
                ]
                if is_last and index >= 7 and mode == "harmonic" and texture == "chorale" and rng.random() < 0.4:
                    tones[1] = (tones[0] + 4) % 12
                getattr(self, f"voice_{texture}")(
                    phrase * 8 + index, index, tones, [(tone + offset) % 12 for tone in scale]
                )

    def phrase_chords(self, closes: bool, beats_per_chord: int) -> list[int]:
        """Returns eight scale degrees, one for each beat: a common progression that ends in a full or half cadence."""
        follow = {
            0: (3, 4, 5, 1, 0, 2),
            1: (4, 4, 6, 4),
            2: (5, 3),
            3: (4, 0, 1, 4),
            4: (0, 0, 5, 4),
            5: (1, 3, 4),
            6: (0,),
        }
        degrees = [int(self.rng.choice([0, 0, 0, 4, 5]))]
        while len(degrees) * beats_per_chord < 8:
            degrees.append(int(self.rng.choice(follow[degrees[-1]])))
        chords = [degree for degree in degrees for _ in range(beats_per_chord)][:8]
        return chords[:5] + ([4, 0, 0] if closes else [int(self.rng.choice([0, 1, 3])), 4, 4])

    def nearest(self, voice: int, tones: list[int], low: int, high: int) -> int:
        choices = [pitch for pitch in range(low, high) if (pitch - self.tonic) % 12 in tones]
        costs = [abs(pitch - self.voices[voice]) + self.rng.uniform(0, 4) for pitch in choices]
        self.voices[voice] = choices[int(np.argmin(costs))]
        return self.voices[voice]

    def voice_chorale(self, beat: int, index: int, tones: list[int], scale: list[int]) -> None:
        for voice, (low, high) in enumerate(((60, 80), (55, 74), (48, 68), (36, 58))):
            allowed = [tones[0]] if voice == 3 and (index in (6, 7) or self.rng.random() < 0.6) else tones
            before = self.voices[voice]
            pitch = self.nearest(voice, allowed, low, high)
            if index and 2 < abs(pitch - before) < 5 and self.rng.random() < 0.5:
                between = [
                    p for p in range(min(pitch, before) + 1, max(pitch, before)) if (p - self.tonic) % 12 in scale
                ]
                if between:
                    self.add(beat - 0.5, 0.48, 0, between[0], 78)
            self.add(beat, 0.95, 0, pitch, 85)

    def voice_melody(self, beat: int, index: int, tones: list[int], scale: list[int]) -> None:
        if index == 7 and self.rng.random() < 0.6:
            return
        self.add(beat, 0.45 if index < 6 else 0.95, 2, self.nearest(0, tones[:1] if index == 6 else tones, 62, 82), 92)
        if index < 6 and self.rng.random() < 0.6:
            self.add(beat + 0.5, 0.45, 2, self.nearest(0, scale, 62, 82), 80)

    def voice_sonata(self, beat: int, index: int, tones: list[int], scale: list[int]) -> None:
        pattern = [[0, 2, 1, 2], [0, 1, 2, 1], [-1, -1, -1, -1]][self.programs[0] % 3]
        pitches = sorted(52 + (tone + self.tonic - 52) % 12 for tone in tones[:3])
        for step, which in enumerate(pattern if self.programs[1] % 2 else pattern[::2]):
            length = 1 / (4 if self.programs[1] % 2 else 2)
            for pitch in pitches if which < 0 else [pitches[which]]:
                self.add(beat + step * length, length * 0.9, 0, pitch, 72)
        if index % 2 == 0:
            self.add(beat, 0.9 + (index == 6), 1, 36 + (tones[0] + self.tonic - 36) % 12, 84)
        if self.rng.random() < 0.85:
            self.add(beat, 0.45, 2, self.nearest(0, tones, 64, 86), 96)
            for step in range(1, int(self.rng.choice([1, 2, 4]))):
                divisions = 2 if self.rng.random() < 0.5 else 4
                self.add(beat + step / divisions, 0.9 / divisions, 2, self.nearest(0, scale, 64, 86), 86)

    def play_drums(self, bar: int, drums: dict[str, str], fill: bool) -> None:
        if bar % 8 == 0 and self.rng.random() < 0.7:
            self.add(self.beat(bar, 0), 0.5, 9, DRUMS["CRASH"], 90)
        for name, steps in drums.items():
            for step, mark in enumerate(steps):
                if mark == "." or (mark == "g" and self.rng.random() < 0.2):
                    continue
                if fill and step >= self.steps * 3 // 4 and name in ("HAT", "RIDE"):
                    continue
                self.add(
                    self.beat(bar, step),
                    0.1,
                    9,
                    DRUMS[name],
                    VELOCITY[mark] - (15 if name in ("HAT", "SHAKER", "OPEN") else 0),
                )
        if fill:
            for step in range(self.steps * 3 // 4, self.steps):
                if self.rng.random() < 0.6:
                    self.add(
                        self.beat(bar, step), 0.1, 9, int(self.rng.choice([DRUMS["SNARE"], DRUMS["TOM"], 43, 48])), 95
                    )

    def play_bass(self, bar: int, steps: str, chords: list[tuple[int, list[int]]]) -> None:
        walking = self.genre_name == "jazz" or self.rng.random() < 0.15
        hits = [i for i, mark in enumerate(steps) if mark != "."]
        for index, step in enumerate(hits):
            root, tones = chords[bar * 2 + (step * 2 >= self.steps)]
            tone = root if not walking or index == 0 else int(self.rng.choice(tones))
            length = ((hits[index + 1] if index + 1 < len(hits) else self.steps) - step) * self.step_beats * 0.9
            self.add(self.beat(bar, step), length, 1, 28 + (tone + self.tonic - 28) % 12, VELOCITY[steps[step]])

    def play_chords(self, bar: int, steps: str, chords: list[tuple[int, list[int]]], arpeggio: bool) -> None:
        hits = [i for i, mark in enumerate(steps) if mark != "."]
        for index, step in enumerate(hits):
            tones = chords[bar * 2 + (step * 2 >= self.steps)][1]
            pitches = [55 + (tone + self.tonic - 55) % 12 for tone in tones]
            if arpeggio and len(hits) >= self.steps // 4:
                pitches = [sorted(pitches)[index % len(pitches)] + 12 * (index % 8 > 3)]
            length = min(2.0, ((hits[index + 1] if index + 1 < len(hits) else self.steps) - step) * self.step_beats)
            for pitch in pitches:
                self.add(self.beat(bar, step), length * 0.9, 0, pitch, VELOCITY[steps[step]] - 12)

    def hold(self, bar: int, half: int, tones: list[int]) -> None:
        for tone in tones:
            self.add(self.beat(bar, half * self.steps // 2), self.genre.beats / 2, 3, 60 + (tone + self.tonic) % 12, 60)

    def play_melody(self, chords: list[tuple[int, list[int]]]) -> None:
        rng, scale = self.rng, SCALES[self.mode]
        pitch, grid = 72, 2 if self.steps == 16 else 3 if self.genre.beats == 4 else 2
        motif = rng.random((4, self.steps))
        for bar in range(self.num_bars):
            if bar % 8 in (6, 7) and rng.random() < 0.4:
                continue
            for step in range(self.steps):
                on_beat = step % round(1 / self.step_beats) == 0
                if step % grid and not (grid == 3 and step % 3 == 2 and motif[bar % 4, step] < 0.2):
                    continue
                if motif[bar % 4, step] > self.genre.lead * (1.35 if on_beat else 0.7):
                    continue
                tones = chords[bar * 2 + (step * 2 >= self.steps)][1]
                allowed = tones if on_beat and rng.random() < 0.8 else scale
                choices = [p for p in range(64, 85) if (p - self.tonic) % 12 in allowed]
                weights = np.exp(-np.abs(np.array(choices) - pitch) / 2.5)
                pitch = int(rng.choice(choices, p=weights / weights.sum()))
                self.add(self.beat(bar, step), float(rng.choice([0.45, 0.9])), 2, pitch, 92 + 8 * on_beat)

    def write(self, path: Path) -> None:
        file = mido.MidiFile(ticks_per_beat=960)
        track = mido.MidiTrack()
        file.tracks.append(track)
        track.append(mido.MetaMessage("set_tempo", tempo=round(60e6 / self.bpm)))
        levels = self.rng.uniform(70, 120, 4).astype(int)
        for channel, program in enumerate(self.programs):
            track.append(mido.Message("program_change", channel=channel, program=program))
            track.append(mido.Message("control_change", channel=channel, control=7, value=int(levels[channel])))
        track.append(mido.Message("control_change", channel=9, control=7, value=int(self.rng.uniform(70, 127))))
        events = []
        for beat, length, channel, pitch, velocity in self.notes:
            events += [(beat, 1, channel, pitch, velocity), (beat + max(length, 0.05), 0, channel, pitch, 0)]
        now = 0
        for beat, _, channel, pitch, velocity in sorted(events):
            tick = round(beat * 960)
            track.append(mido.Message("note_on", channel=channel, note=pitch, velocity=velocity, time=tick - now))
            now = tick
        file.save(path)
