"""Names from the web, made safe for every file system."""

import unicodedata

MAX_BYTES = 180  # file systems stop at 255: this leaves room for what the program adds

# What Windows keeps for devices, with any extension behind it.
_DEVICES = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"} | {
    name + digit for name in ("COM", "LPT") for digit in "0123456789¹²³"
}
# What file systems forbid, and what reads alike.
_READABLE = {"/": "-", "\\": "-", "|": "-", ": ": " - ", ":": "-", '"': "'", "<": "(", ">": ")", "?": "", "*": ""}


def safe_name(title: str) -> str:
    """Turns a title into a file name without its extension, as close to the title as can be."""
    text = unicodedata.normalize("NFC", " ".join(title.split()))
    text = "".join(character for character in text if not unicodedata.category(character).startswith("C"))
    for forbidden, readable in _READABLE.items():
        text = text.replace(forbidden, readable)
    text = _cut(" ".join(text.split()).lstrip(".-~ ")).rstrip(". ")

    stem, dot, ending = text.partition(".")
    if stem.rstrip().upper() in _DEVICES:
        text = f"{stem.rstrip()}_{dot}{ending}"
    return text or "song"


def _cut(text: str) -> str:
    """Cuts at a length in UTF-8, but neither within a character nor between one and its accents."""
    kept = text.encode()[:MAX_BYTES].decode(errors="ignore")
    while kept != text and unicodedata.combining(text[len(kept)]):
        kept = kept[:-1]
    return kept
