"""Checked by mypy, never run: what the package's types promise a caller."""

from typing import Any, Dict, List, assert_type

import numpy as np
import numpy.typing as npt
from PIL import Image

import smartcrop
from smartcrop.dask import crop_files


def promised(array: npt.NDArray[np.uint8], pil: Image.Image) -> None:
    assert_type(smartcrop.crop(array, "1:1"), np.ndarray)
    assert_type(smartcrop.crop(pil, (16, 9), faces=True), Image.Image)
    assert_type(smartcrop.crop("photo.jpg", 1.5, max_pixels=10**7), Image.Image)
    assert_type(smartcrop.suggest(array, ["1", (4, 3)], scales=0.5), List[smartcrop.Crop])
    with smartcrop.analyze(array, channels="bgr") as photo:
        assert_type(photo.focal_point, tuple[float, float])
        assert_type(photo.faces, List[smartcrop.Box])
    assert_type(crop_files(["a.jpg"], aspect="1"), List[Dict[str, Any]])
    assert_type(crop_files(["a.jpg"], out="records.jsonl"), Dict[str, Any])
