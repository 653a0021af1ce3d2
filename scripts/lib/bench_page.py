"""Writes docs/performance/ from the figures that scripts/bench measured."""


def write(timed, counted, curve, reasons):
    raise SystemExit("--plot is not there yet")
