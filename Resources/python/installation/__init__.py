"""Installs the packages that the workers need."""
