#!/usr/bin/env python3
"""Writes the standard spectrum "AM1_5G 1 sun.spe" of the home folder.

The source is the global tilt (AM1.5G) column of the ASTM G173-03 reference table, a spectral
irradiance in W m-2 nm-1 at wavelengths from 280 nm to 4000 nm with a varying step.  A spectrum
file holds for each wavelength the POWER of that wavelength's interval in W/m2, so each density is
multiplied by the width of the interval that belongs to its wavelength: half the distance between
its two neighbours, (l[i+1] - l[i-1]) / 2, with the table's first and last wavelength standing in
for the missing neighbours at the ends.  The powers then add up to the trapezoid integral of the
density (1000.37 W/m2).

Usage: make_standard_spectrum.py [ASTMG173.csv [OUTPUT.spe]]
"""

import csv
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_SOURCE = "/work/shared/data/ASTMG173.csv"
DEFAULT_OUTPUT = os.path.join(HERE, "..", "home", "spectrum", "AM1_5G 1 sun.spe")
MAX_SPECTRUM_LINES = 2500  # the readers count no more lines than this


def read_global_column(path):
    """Wavelengths (nm, as written in the table) and global tilt densities (W m-2 nm-1)."""
    wavelengths, densities = [], []
    with open(path, newline="") as f:
        rows = csv.reader(f)
        header = None
        for row in rows:
            if not row:
                continue
            if header is None:
                # The table has a title line, then the column names.
                if row[0].strip().lower() == "wavelength":
                    header = [c.strip().lower() for c in row]
                continue
            column = header.index("global")
            wavelengths.append(row[0].strip())
            densities.append(float(row[column]))
    if header is None:
        raise SystemExit(f"{path}: no line with the column names (wavelength, ..., global, ...)")
    values = [float(w) for w in wavelengths]
    if any(b <= a for a, b in zip(values, values[1:])):
        raise SystemExit(f"{path}: the wavelengths do not rise")
    return wavelengths, values, densities


def interval_powers(l, e):
    """Power of each wavelength's interval: e[i] * (l[i+1] - l[i-1]) / 2, ends held at l[0], l[n-1]."""
    n = len(l)
    powers = []
    for i in range(n):
        left = l[i - 1] if i > 0 else l[0]
        right = l[i + 1] if i < n - 1 else l[n - 1]
        powers.append(e[i] * (right - left) / 2.0)
    return powers


def main(argv):
    source = argv[1] if len(argv) > 1 else DEFAULT_SOURCE
    output = argv[2] if len(argv) > 2 else DEFAULT_OUTPUT
    texts, l, e = read_global_column(source)
    if len(l) > MAX_SPECTRUM_LINES:
        raise SystemExit(f"{source}: {len(l)} wavelengths, more than a spectrum file may hold")
    powers = interval_powers(l, e)
    total = sum(powers)
    with open(output, "w", newline="\n") as f:
        f.write("Standard spectrum AM1.5G, 1 sun: global tilt column of the ASTM G173-03 reference table\n")
        f.write("Columns: wavelength (nm) and power of its wavelength interval (W/m2), not spectral density\n")
        f.write("Interval of a wavelength: half the distance between its neighbours (trapezoid rule)\n")
        f.write(f"Total power: {total:.2f} W/m2 over {len(l)} wavelengths, {texts[0]} nm to {texts[-1]} nm\n")
        for text, p in zip(texts, powers):
            f.write(f"{text}\t{p:.6e}\n")
    print(f"{output}: {len(l)} lines, {total:.3f} W/m2")


if __name__ == "__main__":
    main(sys.argv)
