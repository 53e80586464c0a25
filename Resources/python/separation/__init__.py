"""Separates a song into stems with Demucs, and caches them."""
