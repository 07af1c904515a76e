"""Photographs for the package's tests: the committed ones, and scenes drawn
here (a sharp textured disc on a soft ground), written as the files a user
would have."""

import os
import subprocess

import numpy as np
import pytest
from PIL import Image

SOURCE_DIR = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
PHOTOS = os.path.join(SOURCE_DIR, "tests", "data")


def scene(width, height, seed):
    """A sharp checkered disc somewhere on a blurred gradient with stripes."""
    rng = np.random.default_rng(seed)
    y, x = np.mgrid[0:height, 0:width].astype(np.float32)
    ground = np.stack([80 + 60 * np.sin(x / 37.0 + seed), 90 + 40 * np.cos(y / 23.0),
                       120 + 50 * np.sin((x + y) / 51.0)], axis=-1)
    cx, cy = rng.uniform(0.2, 0.8) * width, rng.uniform(0.25, 0.75) * height
    radius = min(width, height) * rng.uniform(0.12, 0.22)
    inside = (x - cx) ** 2 + (y - cy) ** 2 <= radius ** 2
    checks = ((x // 6 + y // 6) % 2).astype(bool)
    ground[inside & checks] = (230, 40, 30)
    ground[inside & ~checks] = (250, 230, 60)
    return np.clip(ground, 0, 255).astype(np.uint8)


@pytest.fixture(scope="session")
def photo_paths():
    """The committed photographs (a portrait among them)."""
    return [os.path.join(PHOTOS, n) for n in ("grace_hopper.jpg", "rocket.jpg", "seeding.jpg")]


@pytest.fixture(scope="session")
def scenes(tmp_path_factory):
    """Twenty generated photographs as JPEG and PNG files, and one damaged."""
    folder = tmp_path_factory.mktemp("scenes")
    paths = []
    for k in range(20):
        width, height = (640, 400) if k % 2 else (360, 480)
        path = folder / f"scene{k:02d}.{'png' if k % 5 == 0 else 'jpg'}"
        Image.fromarray(scene(width, height, k)).save(path, quality=90)
        paths.append(str(path))
    damaged = folder / "damaged.jpg"
    whole = open(paths[1], "rb").read()
    damaged.write_bytes(whole[:len(whole) // 2])
    return paths, str(damaged)


@pytest.fixture(scope="session")
def program():
    """Runs the smartcrop program (the build's, named by SMARTCROP_CLI) and
    returns its JSON records."""
    import json
    cli = os.environ.get("SMARTCROP_CLI")
    if not cli:
        pytest.skip("SMARTCROP_CLI names the program; the CMake test sets it")

    def run(*args):
        done = subprocess.run([cli, "--format", "json", *args], capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
        return json.loads(done.stdout)
    return run
