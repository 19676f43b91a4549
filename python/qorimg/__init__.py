"""qorimg: the image-processing engine for astronomical frames, over numpy.

Images are float planes on a store (``Image.from_array``); every operator is a
function that returns a new image (or a result) and leaves its inputs as they
were. Calls release the GIL; ``progress=`` takes a callable given a percentage
(at most ten times a second); Ctrl-C stops the operators that honour the
library's ESC (wavelets, Richardson-Lucy, maximum entropy) and raises
KeyboardInterrupt after any call.
"""
from ._qorimg import *  # noqa: F401,F403
from ._qorimg import Image  # noqa: F401

__version__ = "0.1.0"
