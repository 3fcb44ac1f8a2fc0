"""Measures quarnex and renders docs/results/; scripts/report is the command."""
