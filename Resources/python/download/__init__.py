"""Downloads a song."""
