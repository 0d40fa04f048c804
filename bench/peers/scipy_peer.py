"""Times scipy's find_peaks with peak_widths on spectra of raw doubles; prints the median of nine in ns, a line a file."""
import sys
import time

import numpy
from scipy.signal import find_peaks, peak_widths

for path in sys.argv[1:]:
    samples = numpy.fromfile(path)
    level = numpy.median(samples)
    noise = 1.4826 * numpy.median(numpy.abs(samples - level))
    times = []
    for _ in range(9):
        start = time.perf_counter_ns()
        peaks, _properties = find_peaks(samples, height=level + 5 * noise)
        peak_widths(samples, peaks)
        times.append(time.perf_counter_ns() - start)
    print(sorted(times)[4])
