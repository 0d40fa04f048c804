"""Korvane: tuning logic of a quadrupole time-of-flight mass spectrometer.

`Instrument` is for the work itself; the six classes of the library stand below it with their own names, and `Layer`
connects an instrument in Python. docs/python.md is the guide.
"""

from . import _classes
from ._instrument import (AbortToken, Adjustment, Instrument, Measurement, Probe, Row, Setpoint, Setpoints, Spectrum,
                          create_base_folder)
from ._layer import Acquired, Check, Layer, conform
from ._library import (Aborted, ConfigurationError, Error, InstrumentError, InternalError, NotFound, TimeOut,
                       UsageError, version as __version__)
from ._values import MISSING

for _made in (_classes.classes, _classes.enumerations, _classes.records):
    globals().update(_made)
del _made
