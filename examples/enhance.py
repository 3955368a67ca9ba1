"""Opens the shadows of a picture file, if it benefits: python3 enhance.py INPUT OUTPUT"""

import sys

import numpy as np
from PIL import Image

import ko

with Image.open(sys.argv[1]) as image:
    picture = np.asarray(image.convert("RGB"))
better, result = ko.enhance(picture)
Image.fromarray(better).save(sys.argv[2])
print(result.decision, result.reason)
