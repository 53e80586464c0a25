"""Detects tempo and key."""
