# Makes the pictures of the tests: make_pictures.py SAMPLES OUT
import io
import os
import struct
import sys

import numpy as np
from PIL import Image, ImageCms, PngImagePlugin

samples, out = sys.argv[1:]
XMP = (b'<?xpacket begin="" id="W5M0MpCehiHzreSzNTczkc9d"?><x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF '
       b'xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#"><rdf:Description xmlns:tiff="http://ns.adobe.com/tiff/1.0/" '
       b'tiff:Orientation="6" tiff:Make="Testcam"/></rdf:RDF></x:xmpmeta><?xpacket end="w"?>')


def path(name):
    return os.path.join(out, name)


# An Exif block with a maker, an orientation, the sizes of the picture and a thumbnail.
def exif(orientation, width, height):
    thumbnail = io.BytesIO()
    Image.new("RGB", (16, 12), (200, 0, 0)).save(thumbnail, "JPEG")
    maker = b"Testcam\0"
    entry = lambda tag, kind, count, value: struct.pack("<HHI", tag, kind, count) + (
        struct.pack("<HH", value, 0) if kind == 3 else struct.pack("<I", value))
    first, within = 8, 8 + 2 + 3 * 12 + 4
    second = within + 2 + 2 * 12 + 4
    text = second + 2 + 2 * 12 + 4
    block = b"II*\0" + struct.pack("<I", first)
    block += struct.pack("<H", 3) + entry(0x10f, 2, len(maker), text) + entry(0x112, 3, 1, orientation)
    block += entry(0x8769, 4, 1, within) + struct.pack("<I", second)
    block += struct.pack("<H", 2) + entry(0xa002, 4, 1, width) + entry(0xa003, 4, 1, height) + struct.pack("<I", 0)
    block += struct.pack("<H", 2) + entry(0x201, 4, 1, text + len(maker))
    block += entry(0x202, 4, 1, len(thumbnail.getvalue())) + struct.pack("<I", 0)
    return block + maker + thumbnail.getvalue()


def with_metadata():
    profile = ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes()
    picture = Image.open(os.path.join(samples, "rocket.jpg")).convert("RGB")
    lying = picture.transpose(Image.Transpose.ROTATE_90)
    block = exif(6, *lying.size)
    lying.save(path("camera.jpg"), quality=90, exif=b"Exif\0\0" + block, icc_profile=profile)
    add_xmp(path("camera.jpg"))
    upright = exif(1, *picture.size)
    text = PngImagePlugin.PngInfo()
    text.add_itxt("XML:com.adobe.xmp", XMP.decode(), zip=True)
    picture.save(path("camera.png"), exif=upright, icc_profile=profile, pnginfo=text)
    picture.save(path("camera.webp"), exif=upright, icc_profile=profile, xmp=XMP, quality=90)
    open(path("profile.icc"), "wb").write(profile)


def add_xmp(name):
    data = open(name, "rb").read()
    body = b"http://ns.adobe.com/xap/1.0/\0" + XMP
    open(name, "wb").write(data[:2] + b"\xff\xe1" + struct.pack(">H", len(body) + 2) + body + data[2:])


# A profile whose primaries are exchanged: whoever converts colours with it gives other levels.
def odd_profile():
    profile = bytearray(ImageCms.ImageCmsProfile(ImageCms.createProfile("sRGB")).tobytes())
    count = struct.unpack(">I", profile[128:132])[0]
    for index in range(count):
        at = 132 + 12 * index
        if profile[at:at + 4] == b"rXYZ":
            profile[at:at + 4] = b"gXYZ"
        elif profile[at:at + 4] == b"gXYZ":
            profile[at:at + 4] = b"rXYZ"
    return bytes(profile)


def photographs():
    rocket = np.asarray(Image.open(os.path.join(samples, "rocket.jpg")).convert("RGB"))
    bright = Image.fromarray(127 + rocket // 2)
    bright.save(path("bright.png"))
    bright.save(path("profiled.png"), icc_profile=odd_profile())
    bright.save(path("bright.jpg"), quality=90)
    alpha = np.dstack([rocket, np.full(rocket.shape[:2], 255, np.uint8)])
    alpha[:100, :100, 3] = 0
    Image.fromarray(alpha).save(path("transparent.png"))
    rng = np.random.default_rng(1)
    large = np.asarray(Image.fromarray(rocket).resize((4000, 3000), Image.Resampling.BICUBIC)).astype(np.int16)
    large += rng.integers(-6, 7, large.shape, dtype=np.int16)
    Image.fromarray(np.clip(large, 0, 255).astype(np.uint8)).save(path("large.jpg"), quality=92)


def bad_files():
    good = open(os.path.join(samples, "rocket.jpg"), "rb").read()
    open(path("truncated.jpg"), "wb").write(good[:len(good) // 2])
    png = open(os.path.join(samples, "coffee.png"), "rb").read()
    open(path("truncated.png"), "wb").write(png[:len(png) // 2])
    open(path("text.jpg"), "wb").write(b"This is not a picture.\n")
    open(path("empty.jpg"), "wb").close()
    Image.new("L", (30000, 40), 128).save(path("wide.png"))
    Image.new("L", (12000, 12000), 128).save(path("huge.png"))
    broken = bytearray(png)
    broken[200:4000] = bytes(3800)
    open(path("broken.png"), "wb").write(broken)


with_metadata()
photographs()
bad_files()
