"""ko improves photographs: it opens shadows, and finds and repairs red eyes.

A picture is a numpy array of uint8 or float32, of the shape (height, width) for gray and (height, width, 3) for RGB, with
levels from 0 to 255. Any strides are accepted. Results are new arrays.

`enhance`, `judge` and `redeye` do what the program `ko` does; `Curves` are its tone curves. Below them are the parts that they
are made of, on single planes: blurs, other sizes, histograms, tone curves, connected components.

The interpreter's lock is released during a call. A failure of the library is raised as `ko.Error`, exhausted memory as
MemoryError.
"""

from ._curves import Application, Curves
from ._enhancement import BlockScores, Enhancement, Judgement, Measure, Verdict, enhance, judge
from ._ko import Error, version as __version__
from ._planes import (
    Components,
    Histogram,
    KernelGaussian,
    RealImage,
    TRC,
    bilateral,
    components,
    downsample,
    resize,
    upsample,
)
from ._redeye import Place, RedEyeModel, RedEyes, redeye

__all__ = [
    "Application",
    "BlockScores",
    "Components",
    "Curves",
    "Enhancement",
    "Error",
    "Histogram",
    "Judgement",
    "KernelGaussian",
    "Measure",
    "Place",
    "RealImage",
    "RedEyeModel",
    "RedEyes",
    "TRC",
    "Verdict",
    "__version__",
    "bilateral",
    "components",
    "downsample",
    "enhance",
    "judge",
    "redeye",
    "resize",
    "upsample",
]
