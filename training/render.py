"""Faces with red and with ordinary eyes, and red things that are no eyes.

Nothing here is a photograph of a person: eyes, lids and skin are shapes with soft edges, and what lies behind them is a free
photograph or noise. All numbers come from the generator that is handed in, so that a seed names a scene.
"""
import io

import numpy as np
from PIL import Image
from scipy import ndimage


def smooth(distance, width=1.0):
    """1 inside a shape, 0 outside, from a signed distance that is negative inside, over an edge of a width in pixels."""
    t = np.clip(0.5 - distance / width, 0.0, 1.0)
    return t * t * (3.0 - 2.0 * t)


def mix(canvas, colour, coverage):
    """Lays a colour, or an image of colours, over a canvas where coverage is 1."""
    canvas += coverage[..., None] * (np.asarray(colour, np.float32) - canvas)


def low_noise(rng, shape, cell):
    """Smooth noise of about unit deviation whose features are a cell across."""
    small = rng.normal(size=(max(int(shape[0] / cell), 1) + 3, max(int(shape[1] / cell), 1) + 3)).astype(np.float32)
    zoomed = ndimage.zoom(small, (shape[0] / (small.shape[0] - 2), shape[1] / (small.shape[1] - 2)), order=3)
    return zoomed[: shape[0], : shape[1]]


def colours(*values):
    return np.array(values, np.float32)


class Style:
    """The parameters of a set of scenes."""

    skins = colours([236, 196, 172], [224, 178, 150], [205, 155, 125], [178, 126, 96], [140, 94, 70], [98, 66, 52])
    brown_irises = colours([58, 34, 22], [92, 55, 33], [120, 76, 46], [75, 45, 30])
    other_irises = colours([84, 110, 132], [96, 112, 84], [120, 118, 112], [70, 92, 110], [128, 100, 62])
    hair = colours([25, 20, 18], [70, 45, 28], [150, 115, 70], [110, 50, 25])
    # Of a pupil in which the retina shows, with how often: maroon, red and orange, each from and to.
    reds = ((0.3, (75, 8, 10), (140, 38, 42)), (0.45, (140, 15, 15), (235, 75, 80)), (0.25, (200, 70, 40), (255, 135, 95)))
    glasses = 0.2
    gleams = 0.75
    openness = 0.3, 0.62
    tilt = 0.25
    warmth = 0.07
    blurs = 0.0, 0.4, 0.7, 1.0, 1.5
    noises = 0.5, 1.5, 3.0, 5.0
    qualities = 60, 96


class HeldOutStyle(Style):
    """Other parameters than those of the training."""

    skins = colours([245, 208, 190], [230, 186, 140], [196, 148, 112], [160, 116, 92], [120, 80, 56])
    brown_irises = colours([66, 40, 20], [104, 62, 30], [84, 48, 38])
    other_irises = colours([100, 124, 150], [110, 120, 70], [90, 100, 110])
    hair = colours([15, 12, 12], [90, 60, 40], [190, 160, 110])
    reds = ((0.25, (85, 12, 16), (130, 34, 30)), (0.5, (150, 20, 22), (245, 85, 70)), (0.25, (210, 80, 50), (255, 125, 85)))
    glasses = 0.15
    gleams = 0.85
    openness = 0.34, 0.58
    tilt = 0.3
    warmth = 0.09
    blurs = 0.0, 0.5, 0.9, 1.3
    noises = 1.0, 2.5, 4.5
    qualities = 70, 93


def skin_colour(rng, style):
    at = rng.uniform(0, len(style.skins) - 1)
    low = int(at)
    high = min(low + 1, len(style.skins) - 1)
    return (style.skins[low] * (low + 1 - at) + style.skins[high] * (at - low)) * rng.uniform(0.75, 1.08)


def red_colour(rng, style):
    shares = [share for share, _, _ in style.reds]
    _, low, high = style.reds[rng.choice(len(shares), p=shares)]
    return rng.uniform(low, high).astype(np.float32)


class Eye:
    """One eye: centre and radius of its pupil in the scene, and everything about it that is drawn."""

    def __init__(self, rng, x, y, radius, angle, look):
        self.x, self.y, self.radius, self.angle = x, y, radius, angle
        self.red, self.iris, self.glare = look["red"], look["iris"], look["glare"]
        self.openness = look["openness"] * rng.uniform(0.93, 1.07)
        self.ratio = look["ratio"] * rng.uniform(0.96, 1.04)  # of pupil to iris
        self.gaze = look["gaze"]
        self.pupil = look["pupil"]
        self.gleam = look["gleam"]
        self.lash = look["lash"]
        self.rng = rng

    def draw(self, canvas, light):
        rng = self.rng
        iris = self.radius / self.ratio
        half = iris / rng.uniform(0.44, 0.54)  # of the opening between the corners
        reach = int(2.6 * half) + 3
        x0, x1 = max(int(self.x) - reach, 0), min(int(self.x) + reach + 1, canvas.shape[1])
        y0, y1 = max(int(self.y) - reach, 0), min(int(self.y) + reach + 1, canvas.shape[0])
        if x1 - x0 < 3 or y1 - y0 < 3:
            return
        part = canvas[y0:y1, x0:x1]
        yy, xx = np.mgrid[y0:y1, x0:x1].astype(np.float32)
        px, py = xx + 0.5 - self.x, yy + 0.5 - self.y  # from the pupil
        c, s = np.cos(self.angle), np.sin(self.angle)
        px, py = c * px + s * py, c * py - s * px
        ex, ey = px + self.gaze[0] * half, py + self.gaze[1] * half  # from the middle of the opening
        u = np.clip(ex / half, -1.0, 1.0)
        bow = (1.0 - u * u) ** rng.uniform(0.7, 1.0)
        upper = -half * self.openness * rng.uniform(0.95, 1.05) * bow
        lower = half * self.openness * rng.uniform(0.55, 0.75) * bow
        outside = np.maximum(upper - ey, ey - lower)
        outside = np.maximum(outside, np.abs(ex) - half)
        edge = max(0.06 * half, 1.0)
        # the socket, the crease of the lid, the brow
        shade = np.exp(-((ex / (1.3 * half)) ** 2 + ((ey + 0.1 * half) / (0.75 * half)) ** 2))
        part *= (1.0 - rng.uniform(0.05, 0.3) * shade)[..., None]
        crease = np.exp(-(((ey - upper * rng.uniform(1.35, 1.7)) / (0.07 * half)) ** 2)) * (np.abs(ex) < 1.05 * half)
        part *= (1.0 - rng.uniform(0.1, 0.4) * crease)[..., None]
        brow = np.exp(-(((ey + half * rng.uniform(1.25, 1.6) + 0.15 * half * u * u) / (0.16 * half)) ** 4)) * (np.abs(ex) < 1.25 * half)
        mix(part, self.lash, brow * rng.uniform(0.3, 0.9))
        # between the lids: the white, the iris, the pupil
        ball = np.ones(part.shape, np.float32) * np.array([222, 210, 204], np.float32) * rng.uniform(0.65, 1.05) * light
        ball *= (1.0 - 0.35 * np.clip(np.abs(ex) / half, 0, 1) ** 2)[..., None]
        ball *= (0.75 + 0.25 * smooth(upper + 0.25 * half - ey, 0.35 * half))[..., None]
        caruncle = np.hypot(np.abs(ex) - 0.93 * half, ey) if rng.random() < 0.5 else np.hypot(ex - 0.93 * half, ey)
        mix(ball, np.array([190, 110, 105], np.float32) * light, smooth(caruncle - 0.13 * half, 0.1 * half) * rng.uniform(0, 0.9))
        distance = np.hypot(px, py)
        turn = np.arctan2(py, px)
        streaks = 1.0 + 0.15 * np.sin(turn * rng.integers(9, 21) + rng.uniform(0, 6)) * rng.random()
        ring = np.clip(distance / iris, 0, 1)
        colour = self.iris * light * (rng.uniform(0.9, 1.3) - 0.5 * ring[..., None] ** 4) * streaks[..., None]
        mix(ball, colour, smooth(distance - iris, max(0.09 * iris, 1.0)))
        squeeze = rng.uniform(0.94, 1.06)
        inner = np.hypot(px * squeeze, py / squeeze)
        fade = np.clip(inner / self.radius, 0, 1)[..., None]
        if self.red:
            rim = rng.uniform(0.15, 0.75)
            filled = self.pupil * (1.0 - rim * fade ** rng.uniform(1.5, 5.0))
            if rng.random() < 0.3:  # lit from one side
                filled = filled * (1.0 - 0.45 * np.clip(px / self.radius * rng.choice([-1, 1]), 0, 1))[..., None]
        else:
            filled = np.ones(part.shape, np.float32) * self.pupil
        mix(ball, filled, smooth(inner - self.radius, max(rng.uniform(0.08, 0.4) * self.radius, 1.0)))
        if self.gleam > 0:
            gx, gy = rng.normal(0, 0.25, 2) * self.radius
            gleam = np.hypot(px - gx, py - gy)
            mix(ball, [250, 248, 245], smooth(gleam - self.gleam * self.radius, max(0.12 * self.radius, 1.0)))
        mix(part, ball, smooth(outside, edge))
        lid = np.exp(-((np.abs(ey - upper) / (0.09 * half)) ** 2)) * (np.abs(ex) < half)
        mix(part, self.lash * light, lid * rng.uniform(0.4, 1.0))
        rim = np.exp(-((np.abs(ey - lower) / (0.06 * half)) ** 2)) * (np.abs(ex) < half)
        mix(part, self.lash * light + 25, rim * rng.uniform(0.0, 0.6))
        if self.glare:
            slope = rng.uniform(-1.5, 1.5)
            line = np.abs(py - slope * px - rng.normal(0, 0.5) * iris) / np.hypot(1, slope)
            near = smooth(distance - 1.8 * half, half)  # as wide as a lens
            mix(part, [245, 248, 250], smooth(line - rng.uniform(0.1, 0.5) * iris, 0.4 * iris) * near * rng.uniform(0.2, 0.75))


def eye_look(rng, style, red, brown):
    """What both eyes of a face share."""
    irises = style.brown_irises if brown else style.other_irises
    pupil = red_colour(rng, style) if red else np.array([1, 1, 1], np.float32) * rng.uniform(4, 32)
    return {
        "red": red,
        "iris": irises[rng.integers(len(irises))] * rng.uniform(0.7, 1.5) * np.array([1, rng.uniform(0.85, 1.1), rng.uniform(0.8, 1.1)], np.float32),
        "glare": rng.random() < style.glasses,
        "openness": rng.uniform(*style.openness),
        "ratio": rng.uniform(0.45, 0.9) if red else rng.uniform(0.28, 0.7),
        "gaze": rng.normal(0, 0.12, 2) * np.array([1.0, 0.45]),
        "pupil": pupil,
        "gleam": rng.uniform(0.08, 0.32) if rng.random() < style.gleams else 0.0,
        "lash": np.array([30, 22, 18], np.float32) * rng.uniform(0.4, 3.0),
    }


def draw_face(rng, style, canvas, x, y, iris, red, brown):
    """A head whose eyes have irises of a radius; gives the pupils."""
    height, width = canvas.shape[:2]
    skin = skin_colour(rng, style)
    light = rng.uniform(0.7, 1.05)
    look = eye_look(rng, style, red, brown)
    angle = rng.normal(0, style.tilt)
    gap = iris * rng.uniform(4.6, 6.2)  # half of the way between the eyes
    c, s = np.cos(angle), np.sin(angle)
    yy, xx = np.mgrid[0:height, 0:width].astype(np.float32)
    fx, fy = xx + 0.5 - x, yy + 0.5 - y
    fx, fy = c * fx + s * fy, c * fy - s * fx
    oval = (np.hypot(fx / (2.25 * gap), (fy - 0.9 * gap) / (2.9 * gap)) - 1.0) * 2.25 * gap
    hair = (np.hypot(fx / (2.6 * gap), (fy - 0.2 * gap) / (3.0 * gap)) - 1.0) * 2.6 * gap
    mix(canvas, style.hair[rng.integers(len(style.hair))] * rng.uniform(0.6, 1.4), smooth(hair, 0.3 * gap))
    tint = skin * light
    shading = 1.0 + 0.05 * low_noise(rng, (height, width), 1.4 * gap) - 0.25 * np.clip((fx / (2.25 * gap)) * rng.choice([-1, 1]), 0, 1) ** 2
    face = tint * shading[..., None]
    cheeks = np.exp(-(((np.abs(fx) - 1.3 * gap) / (0.8 * gap)) ** 2 + ((fy - 1.2 * gap) / (0.7 * gap)) ** 2))
    face = face * (1.0 + cheeks[..., None] * np.array([0.05, -0.08, -0.06], np.float32) * rng.uniform(0, 1.6))
    nose = np.exp(-((fx / (0.25 * gap)) ** 2 + ((fy - 1.1 * gap) / (0.5 * gap)) ** 2))
    face = face * (1.0 + rng.uniform(-0.15, 0.15) * nose[..., None])
    mix(canvas, face, smooth(oval, 0.08 * gap))
    lip = np.array([rng.uniform(150, 215), rng.uniform(50, 110), rng.uniform(55, 115)], np.float32) * light
    mouth = np.hypot(fx / (0.95 * gap), (fy - 2.15 * gap) / (0.3 * gap)) - 1.0
    mix(canvas, lip, smooth(mouth * 0.3 * gap, 0.12 * gap))
    if rng.random() < 0.4:
        mix(canvas, [225, 220, 215], smooth((np.hypot(fx / (0.6 * gap), (fy - 2.15 * gap) / (0.12 * gap)) - 1.0) * 0.12 * gap, 0.08 * gap))
    pupils = []
    for side in (-1, 1):
        if rng.random() < 0.04:
            continue
        ex, ey = x + c * side * gap, y + s * side * gap
        radius = iris * look["ratio"]
        eye = Eye(rng, ex, ey, radius, angle + rng.normal(0, 0.05), look)
        eye.draw(canvas, light)
        pupils.append({"x": ex, "y": ey, "r": radius, "iris": iris, "red": bool(red)})
    if look["glare"]:
        for side in (-1, 1):
            frame = np.abs(np.hypot((fx - side * gap) / 0.85, fy / 0.65) - gap * 0.95)
            mix(canvas, np.array([40, 35, 35], np.float32) * rng.uniform(0.3, 3), smooth(frame - 0.05 * gap, 0.08 * gap) * 0.9)
    return pupils


def draw_look_alike(rng, style, canvas, scale):
    """A red thing that is no eye, about so many pixels across."""
    height, width = canvas.shape[:2]
    x, y = rng.uniform(0, width), rng.uniform(0, height)
    reach = int(4 * scale) + 4
    x0, x1, y0, y1 = max(int(x) - reach, 0), min(int(x) + reach, width), max(int(y) - reach, 0), min(int(y) + reach, height)
    if x1 - x0 < 3 or y1 - y0 < 3:
        return
    part = canvas[y0:y1, x0:x1]
    yy, xx = np.mgrid[y0:y1, x0:x1].astype(np.float32)
    px, py = xx + 0.5 - x, yy + 0.5 - y
    angle = rng.uniform(0, np.pi)
    px, py = np.cos(angle) * px + np.sin(angle) * py, np.cos(angle) * py - np.sin(angle) * px
    red = np.array([rng.uniform(110, 250), rng.uniform(5, 90), rng.uniform(5, 90)], np.float32)
    kind = rng.integers(7)
    edge = max(rng.uniform(0.05, 0.4) * scale, 0.8)
    if kind == 0:  # a bead or a berry, alone or in a group
        for _ in range(rng.integers(1, 6)):
            dx, dy = rng.normal(0, 1.6, 2) * scale
            d = np.hypot(px - dx, py - dy)
            ball = red * (1.15 - 0.6 * np.clip(np.hypot(px - dx + 0.3 * scale, py - dy + 0.3 * scale) / (1.3 * scale), 0, 1)[..., None])
            mix(part, ball, smooth(d - scale, edge))
            mix(part, [255, 240, 235], smooth(np.hypot(px - dx + 0.35 * scale, py - dy + 0.35 * scale) - 0.18 * scale, 0.2 * scale) * rng.uniform(0, 1))
    elif kind == 1:  # a lamp with a halo
        d = np.hypot(px, py) / scale
        mix(part, red, np.clip(np.exp(-d * d * rng.uniform(0.4, 1.2)), 0, 1))
        mix(part, [255, 235, 200], np.exp(-((d / rng.uniform(0.25, 0.6)) ** 4)) * rng.uniform(0.0, 1.0))
    elif kind == 2:  # lips, alone
        d = np.hypot(px / (1.9 * scale), py / (0.7 * scale)) - 1.0
        mix(part, red, smooth(d * 0.7 * scale, edge))
        mix(part, red * 0.35, np.exp(-((py / (0.1 * scale)) ** 2)) * smooth(d * 0.7 * scale, edge))
    elif kind == 3:  # a spot on skin
        mix(part, skin_colour(rng, style), smooth(np.hypot(px, py) - 3.0 * scale, 2.0 * scale))
        mix(part, red, smooth(np.hypot(px, py * rng.uniform(1.0, 1.6)) - scale, edge * 2) * rng.uniform(0.5, 1.0))
    elif kind == 4:  # stripes
        wave = np.sin(px / scale * rng.uniform(1.0, 2.5))
        mix(part, red, smooth(-wave, 0.3) * smooth(np.hypot(px, py) - 3.0 * scale, scale))
    elif kind == 5:  # a ring, a button
        d = np.abs(np.hypot(px, py) - scale)
        mix(part, red, smooth(d - 0.35 * scale, edge))
        for hole in (-1, 1):
            mix(part, red * 0.3, smooth(np.hypot(px - hole * 0.3 * scale, py) - 0.15 * scale, 0.2 * scale))
    else:  # a blot
        d = np.hypot(px, py) + 0.5 * scale * low_noise(rng, px.shape, max(scale, 2.0))
        mix(part, red, smooth(d - scale, edge))


def background(rng, photographs, width, height):
    if photographs and rng.random() < 0.75:
        photograph = photographs[rng.integers(len(photographs))]
        zoom = rng.uniform(0.35, 1.0)
        w, h = max(int(width / zoom), 8), max(int(height / zoom), 8)
        w, h = min(w, photograph.shape[1]), min(h, photograph.shape[0])
        x, y = rng.integers(photograph.shape[1] - w + 1), rng.integers(photograph.shape[0] - h + 1)
        crop = Image.fromarray(photograph[y : y + h, x : x + w]).resize((width, height), Image.BOX)
        if rng.random() < 0.5:
            crop = crop.transpose(Image.FLIP_LEFT_RIGHT)
        return np.asarray(crop, np.float32).copy() * rng.uniform(0.25, 1.0)
    base = rng.uniform(5, 150, 3).astype(np.float32)
    return np.clip(base + 30 * low_noise(rng, (height, width), rng.uniform(20, 200))[..., None], 0, 255).astype(np.float32)


def lay_cut_out(rng, canvas, cut_outs):
    """Lays a photograph of a single thing, cut out along its edges, anywhere on the canvas."""
    height, width = canvas.shape[:2]
    cut_out = cut_outs[rng.integers(len(cut_outs))]
    longest = np.exp(rng.uniform(np.log(0.08), np.log(0.9))) * min(width, height)
    scale = longest / max(cut_out.size)
    size = max(int(cut_out.width * scale), 4), max(int(cut_out.height * scale), 4)
    piece = cut_out.resize(size, Image.BOX if scale < 1 else Image.BILINEAR)
    if rng.random() < 0.5:
        piece = piece.transpose(Image.FLIP_LEFT_RIGHT)
    piece = np.asarray(piece.rotate(rng.normal(0, 15), Image.BILINEAR, expand=True), np.float32)
    x0, y0 = int(rng.uniform(-0.3, 1) * width), int(rng.uniform(-0.3, 1) * height)
    left, top = max(-x0, 0), max(-y0, 0)
    piece = piece[top : max(height - y0, 0), left : max(width - x0, 0)]
    if piece.size:
        x0, y0 = x0 + left, y0 + top
        part = canvas[y0 : y0 + piece.shape[0], x0 : x0 + piece.shape[1]]
        mix(part, piece[..., :3] * rng.uniform(0.7, 1.1), piece[..., 3] / 255)


def finish(rng, style, canvas):
    """Light, lens, sensor and file."""
    gains = np.exp(rng.normal(0, style.warmth, 3)).astype(np.float32) * rng.uniform(0.75, 1.15)
    picture = canvas * gains
    sigma = rng.choice(style.blurs)
    if sigma > 0:
        picture = ndimage.gaussian_filter(picture, (sigma, sigma, 0))
    picture = 255.0 * np.clip(picture / 255.0, 0, 1) ** rng.uniform(0.85, 1.2)
    picture += rng.normal(0, rng.choice(style.noises), picture.shape)
    file = io.BytesIO()
    Image.fromarray(np.clip(picture + 0.5, 0, 255).astype(np.uint8)).save(file, "JPEG", quality=int(rng.integers(*style.qualities)))
    return np.asarray(Image.open(io.BytesIO(file.getvalue())).convert("RGB"))


def scene(rng, photographs, cut_outs, style=Style):
    """A picture and its eyes: the middle and the radii of pupil and iris of each, and whether its pupil is red."""
    size = rng.uniform(1.4, 2.6) if rng.random() < 0.3 else 1.0
    width, height = int(rng.integers(260, 520) * size), int(rng.integers(220, 420) * size)
    canvas = background(rng, photographs, width, height)

    def look_alikes():
        for _ in range(rng.integers(0, 3)):
            draw_look_alike(rng, style, canvas, np.exp(rng.uniform(np.log(2.0), np.log(22.0 * size))))

    look_alikes()
    for _ in range(rng.choice([0, 0, 1, 3])):
        lay_cut_out(rng, canvas, cut_outs)
    eyes = []
    faces = rng.choice([0, 1, 1, 1, 2])
    for number in range(faces):
        iris = np.exp(rng.uniform(np.log(4.5), np.log((26.0 if faces == 1 else 11.0) * size)))
        x = width * (0.5 if faces == 1 else (0.3, 0.72)[number]) + rng.normal(0, 0.05 * width)
        y = height * rng.uniform(0.25, 0.55)
        eyes += draw_face(rng, style, canvas, x, y, iris, rng.random() < 0.5, rng.random() < 0.65)
    if not eyes:
        look_alikes()
    inside = [eye for eye in eyes if 0 <= eye["x"] < width and 0 <= eye["y"] < height]
    return finish(rng, style, canvas), inside
