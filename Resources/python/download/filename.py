"""Turns titles from the web into file names that every file system accepts."""

import unicodedata

MAX_BYTES = 180  # file systems allow 255, but the program lengthens the name

# Reserved by Windows for devices, with or without an extension.
_DEVICES = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"} | {
    name + digit for name in ("COM", "LPT") for digit in "0123456789¹²³"
}
# Characters that file systems forbid, and their replacements.
_READABLE = {"/": "-", "\\": "-", "|": "-", ": ": " - ", ":": "-", '"': "'", "<": "(", ">": ")", "?": "", "*": ""}


def safe_name(title: str) -> str:
    """Returns a file name without an extension, as close to the title as possible."""
    text = " ".join(title.split())
    text = "".join(character for character in text if not unicodedata.category(character).startswith("C"))
    for forbidden, readable in _READABLE.items():
        text = text.replace(forbidden, readable)
    text = unicodedata.normalize("NFC", " ".join(text.split()).lstrip(".-~ "))

    stem, dot, ending = text.partition(".")
    if stem.rstrip().upper() in _DEVICES:
        text = f"{stem.rstrip()}_{dot}{ending}"
    return _cut(text).rstrip(". ") or "song"


def _cut(text: str) -> str:
    """Cuts the text to MAX_BYTES in UTF-8, without splitting a character or separating it from its accents."""
    kept = text.encode()[:MAX_BYTES].decode(errors="ignore")
    while kept != text and unicodedata.combining(text[len(kept)]):
        kept = kept[:-1]
    return kept
