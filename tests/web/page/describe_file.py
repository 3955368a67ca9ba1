# Describes a picture file as JSON, by a reader that has nothing in common with the page's.
import hashlib
import json
import sys

from PIL import ExifTags, Image

picture = Image.open(sys.argv[1])
picture.load()
exif = picture.getexif()
within = exif.get_ifd(ExifTags.IFD.Exif)
profile = picture.info.get("icc_profile")
heading = b"http://ns.adobe.com/xap/1.0/\0"
segments = [data[len(heading):] for name, data in getattr(picture, "applist", []) if data.startswith(heading)]
xmp = segments[0] if segments else picture.info.get("xmp") or picture.info.get("XML:com.adobe.xmp") or b""
print(json.dumps({
    "format": picture.format,
    "size": picture.size,
    "make": exif.get(0x10f),
    "orientation": exif.get(0x112),
    "exifSize": [within.get(0xa002), within.get(0xa003)],
    "thumbnail": len(exif.get_ifd(ExifTags.IFD.IFD1)) > 0,
    "profile": hashlib.sha256(profile).hexdigest() if profile else None,
    "xmp": xmp if isinstance(xmp, str) else xmp.decode("latin-1"),
    "mean": [round(sum(band.histogram()[level] * level for level in range(256)) / (picture.width * picture.height), 2)
             for band in picture.convert("RGB").split()],
    "corner": picture.convert("RGB").getpixel((0, 0)),
    "middle": picture.convert("RGB").getpixel((picture.width // 2, picture.height // 2)),
}))
