"""Images as they come: every format that carries an EXIF orientation
comes out upright, turned once, and PIL's 16-bit modes answer as their
files do.

Orientation: the program's full-size crop of each file against the turn the
orientation names, for all eight (the table below is PIL's
ImageOps.exif_transpose, which agrees with it on JPEG, PNG and WebP)."""

import os
import subprocess

import numpy as np
import pytest
from PIL import Image, ImageOps


def asymmetric():
    """A picture that no turn or mirror maps onto itself."""
    y, x = np.mgrid[0:48, 0:72]
    rgb = np.stack([x * 3, y * 5, (x + 2 * y) % 256], axis=-1).astype(np.uint8)
    rgb[4:14, 6:20] = (250, 20, 20)
    return Image.fromarray(rgb)


TRANSFORMS = [None, Image.Transpose.FLIP_LEFT_RIGHT, Image.Transpose.ROTATE_180,
              Image.Transpose.FLIP_TOP_BOTTOM, Image.Transpose.TRANSPOSE, Image.Transpose.ROTATE_270,
              Image.Transpose.TRANSVERSE, Image.Transpose.ROTATE_90]


def save(picture, path, orientation):
    exif = Image.Exif()
    exif[0x0112] = orientation
    if path.endswith(".tiff"):
        picture.save(path, tiffinfo={0x0112: orientation})
    elif path.endswith(".webp"):
        picture.save(path, exif=exif.tobytes(), lossless=True)
    else:
        picture.save(path, exif=exif.tobytes(), quality=95)


@pytest.mark.parametrize("ext", [".jpg", ".png", ".webp", ".tiff"])
def test_every_orientation_is_applied_once(tmp_path, ext):
    cli = os.environ.get("SMARTCROP_CLI")
    if not cli:
        pytest.skip("SMARTCROP_CLI names the program; the CMake test sets it")
    stored = asymmetric()
    for orientation in range(1, 9):
        path = str(tmp_path / f"o{orientation}{ext}")
        save(stored, path, orientation)
        candidates = [stored if t is None else stored.transpose(t) for t in TRANSFORMS]
        expected = np.asarray(candidates[orientation - 1], np.float64)
        if ext != ".tiff":  # PIL leaves a TIFF's own orientation tag to the reader
            with Image.open(path) as opened:
                assert ImageOps.exif_transpose(opened).size == candidates[orientation - 1].size
        h, w = expected.shape[:2]
        out = tmp_path / f"crops{orientation}{ext}"
        done = subprocess.run([cli, "--design-defaults", "--size", f"{w}x{h}", "--count", "1",
                               "--write-crops", str(out), "--format", "json", path],
                              capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        (written,) = os.listdir(out)
        ours = np.asarray(Image.open(out / written).convert("RGB"), np.float64)
        assert ours.shape == expected.shape, orientation
        # The nearest of the eight turns of the stored picture is the one
        # the orientation names (the formats' own losses are far smaller).
        distance = [np.abs(np.asarray(c, np.float64) - ours).mean() if c.size == (w, h) else np.inf
                    for c in candidates]
        assert int(np.argmin(distance)) == orientation - 1, (orientation, distance)
        assert np.abs(expected - ours).mean() < 6, orientation


def test_sixteen_bit_pil_images_answer_as_their_files(tmp_path):
    """PIL opens a 16-bit grey PNG in mode I (or I;16): analysed as the file
    is, not as a blank picture; floating point is refused with the reason."""
    import smartcrop
    y, x = np.mgrid[0:120, 0:200]
    grey = ((x * 300 + y * 40) % 65536).astype(np.uint16)
    grey[30:70, 120:170] = 60000
    path = str(tmp_path / "grey16.png")
    Image.fromarray(grey).save(path)
    by_path = smartcrop.suggest(path, "1", count=3)
    with Image.open(path) as opened:
        assert opened.mode in ("I", "I;16")
        assert smartcrop.suggest(opened, "1", count=3) == by_path
        assert smartcrop.suggest(opened.convert("I;16"), "1", count=3) == by_path
        with pytest.raises(ValueError, match="mode F"):
            smartcrop.suggest(opened.convert("F"), "1")
