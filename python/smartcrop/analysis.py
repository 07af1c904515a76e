"""Analysing a photograph once and asking it for crops."""

from __future__ import annotations

import math
import os
import threading
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, List, Optional, Sequence, Tuple, Union

import numpy as np

from . import _native
from .records import ROI_KINDS, Box, Crop, Roi, RoiLike, as_rois

if TYPE_CHECKING:  # PIL is needed only when a PIL image is handed in
    from PIL import Image as PILImage

Error = _native.Error

ImageLike = Union[np.ndarray, "PILImage.Image", str, "os.PathLike[str]"]
AspectLike = Union[str, float, Sequence[Union[str, float]]]

DEFAULT_MAX_PIXELS = 100_000_000

_detector_lock = threading.Lock()
_detector_path: Optional[str] = None


def packaged_face_detector() -> str:
    """The face detector's configuration shipped inside the package."""
    return os.path.join(os.path.dirname(os.path.abspath(__file__)), "data", "ovex3")


def use_face_detector(config_path: Optional[str] = None) -> None:
    """Checks and loads the face detector for this process (by default the
    packaged one). Called on the first analysis with ``faces=True``; call it
    yourself to use another detector. Raises :class:`Error` naming the file
    at fault."""
    global _detector_path
    path = os.fspath(config_path) if config_path is not None else packaged_face_detector()
    with _detector_lock:
        _native.use_face_detector(path)
        _detector_path = path


def _ensure_face_detector() -> None:
    if _detector_path is None:
        use_face_detector()


def parse_aspect(aspect: Union[str, float]) -> float:
    """``"16:9"``, ``"1.5"``, ``1.5`` or ``(16, 9)``-free forms to a ratio."""
    try:
        if isinstance(aspect, str):
            if ":" in aspect:
                w, h = aspect.split(":", 1)
                value = float(w) / float(h)
            else:
                value = float(aspect)
        else:
            value = float(aspect)
    except (ValueError, ZeroDivisionError):
        raise ValueError(f"bad aspect ratio: {aspect!r}") from None
    if not (value > 0 and math.isfinite(value)):
        raise ValueError(f"bad aspect ratio: {aspect!r}")
    return value


def parse_aspects(aspect: Optional[AspectLike]) -> List[float]:
    if aspect is None:
        return []
    if isinstance(aspect, (str, int, float)):
        return [parse_aspect(aspect)]
    return [parse_aspect(a) for a in aspect]


def parse_size(size: Union[None, str, Tuple[int, int]]) -> Tuple[int, int]:
    if size is None:
        return (0, 0)
    if isinstance(size, str):
        parts = size.lower().split("x")
        if len(parts) != 2:
            raise ValueError(f"a size is WIDTHxHEIGHT, not {size!r}")
        size = (parts[0], parts[1])  # type: ignore[assignment]
    try:
        w, h = (int(v) for v in size)  # type: ignore[union-attr]
    except (TypeError, ValueError):
        raise ValueError(f"a size is (width, height), not {size!r}") from None
    if w <= 0 or h <= 0 or w > 2**32 - 1 or h > 2**32 - 1:
        raise ValueError(f"a size must be positive, not {size!r}")
    return (w, h)


def _native_rects(rois: Sequence[Roi]) -> List[Tuple[int, int, int, int, int]]:
    return [(ROI_KINDS.index(r.kind), r.left, r.top, r.right, r.bottom) for r in rois]


def _pixels(image: Any) -> np.ndarray:
    """A uint8 array of height x width (x 3 or 4) from an array or a PIL image."""
    if isinstance(image, np.ndarray):
        array = image
    else:
        try:
            from PIL import Image
        except ImportError:  # pragma: no cover - PIL is a dependency
            raise TypeError("an image is a NumPy array, a PIL image or a path") from None
        if not isinstance(image, Image.Image):
            raise TypeError(f"an image is a NumPy array, a PIL image or a path, not {type(image).__name__}")
        if image.mode not in ("RGB", "RGBA", "L"):
            image = image.convert("RGBA" if "A" in image.getbands() else "RGB")
        array = np.asarray(image)
    if array.dtype != np.uint8:
        raise ValueError(f"the array's type must be uint8, not {array.dtype}")
    return np.ascontiguousarray(array)


@dataclass(frozen=True)
class Answer:
    """Everything one query gives: the ranked crops, the faces (when asked
    for) and the focal point as fractions of the width and the height."""

    crops: List[Crop]
    faces: List[Box]
    focal_point: Tuple[float, float]


class Analysis:
    """One photograph, analysed once; every query on it is cheap. Made by
    :func:`analyze`. Use it from one thread at a time (calls from several
    threads wait for one another); close it, or use it as a context manager,
    to free its memory at once."""

    def __init__(self, native: "_native.Analysis", faces: bool, roi: Sequence[Roi]) -> None:
        self._native = native
        self._faces = faces
        self._roi = list(roi)

    @property
    def width(self) -> int:
        """Full-resolution width (orientation applied)."""
        return self._native.width

    @property
    def height(self) -> int:
        return self._native.height

    @property
    def format(self) -> str:
        """The file's format ("JPEG", "PNG", ...), "unknown" for pixels handed in."""
        return self._native.format

    @property
    def closed(self) -> bool:
        return self._native.closed

    def answer(self, aspect: Optional[AspectLike] = None, *, size: Union[None, str, Tuple[int, int]] = None,
               scales: Optional[Sequence[float]] = None, count: int = 5, per_aspect: bool = False,
               faces: Optional[bool] = None, roi: Optional[Sequence[RoiLike]] = None,
               plain: bool = False) -> Answer:
        """The full answer of :meth:`suggest`, with the faces and the focal point."""
        if count < 1:
            raise ValueError("at least one suggestion must be asked for")
        width, height = parse_size(size)
        use_faces = self._faces if faces is None else bool(faces)
        rois = self._roi if roi is None else as_rois(roi)
        if use_faces:
            _ensure_face_detector()
        crops, boxes, focus = self._native.suggest(
            aspects=parse_aspects(aspect), scales=[float(s) for s in scales or ()], width=width,
            height=height, count=int(count), per_aspect=per_aspect, faces=use_faces,
            rects=_native_rects(rois), plain=plain)
        self._roi = rois
        return Answer([Crop(*c) for c in crops], [Box(*b) for b in boxes], focus)

    def suggest(self, aspect: Optional[AspectLike] = None, *, size: Union[None, str, Tuple[int, int]] = None,
                scales: Optional[Sequence[float]] = None, count: int = 5, per_aspect: bool = False,
                faces: Optional[bool] = None, roi: Optional[Sequence[RoiLike]] = None,
                plain: bool = False) -> List[Crop]:
        """Ranked crops, best first.

        ``aspect``: one ratio or several (``"16:9"``, ``1.5``); by default
        1:1 4:3 3:4 3:2 2:3 16:9 9:16. ``size``: one exact crop size
        ``(w, h)`` or ``"WxH"`` instead. ``scales``: shares of the image's
        extent in (0, 1]. ``count``: suggestions (per ratio with
        ``per_aspect``). ``faces``: let faces count (default: as asked of :func:`analyze`).
        ``roi``: rectangles of interest (default: those of the last query,
        else of :func:`analyze`); other rectangles, or faces on an analysis
        made without them, analyse the image again. ``plain``: the library's own ranking as designed.

        Raises ``ValueError`` for a request this image cannot answer."""
        return self.answer(aspect, size=size, scales=scales, count=count, per_aspect=per_aspect,
                           faces=faces, roi=roi, plain=plain).crops

    @property
    def faces(self) -> List[Box]:
        """The faces found (analysing for them if this analysis was made
        without), tight detector boxes in full-resolution pixels."""
        return self.answer(faces=True).faces

    @property
    def focal_point(self) -> Tuple[float, float]:
        """Where a page should keep its focus when it crops by itself (CSS
        ``object-position``), as fractions of the width and the height."""
        return self.answer().focal_point

    def crop(self, image: ImageLike, aspect: Optional[AspectLike] = None, **query: Any) -> Any:
        """The best crop cut out of ``image`` (the photograph analysed, at
        full resolution): an array for an array, a PIL image for a PIL image
        or a path."""
        best = self.suggest(aspect, count=1, **query)[0]
        if isinstance(image, np.ndarray):
            if image.shape[:2] != (self.height, self.width):
                raise ValueError(f"the image is {image.shape[1]} x {image.shape[0]}, "
                                 f"the analysis {self.width} x {self.height}")
            return image[best.slices].copy()
        if isinstance(image, (str, os.PathLike)):
            from PIL import Image, ImageOps
            with Image.open(image) as opened:
                image = ImageOps.exif_transpose(opened)
                image.load()
        if image.size != (self.width, self.height):
            raise ValueError(f"the image is {image.size[0]} x {image.size[1]}, "
                             f"the analysis {self.width} x {self.height}")
        return image.crop(best.box)

    def close(self) -> None:
        """Frees the analysis; later queries raise ``ValueError``."""
        self._native.close()

    def __enter__(self) -> "Analysis":
        return self

    def __exit__(self, *exc: object) -> None:
        self.close()

    def __repr__(self) -> str:
        state = "closed" if self.closed else f"{self.width} x {self.height}"
        return f"<smartcrop.Analysis {state}>"


def analyze(image: ImageLike, *, faces: bool = False, roi: Optional[Sequence[RoiLike]] = None,
            max_pixels: int = DEFAULT_MAX_PIXELS, lenient: bool = False) -> Analysis:
    """Analyses a photograph: a NumPy array (height x width x 3 or 4, uint8,
    RGB or RGBA), a PIL image, or a path (JPEG, PNG, WebP and more, EXIF
    orientation applied; a large JPEG is decoded reduced, as much as the
    analysis allows).

    ``faces``: find faces now (needed for the decoding size a path gets for
    them). ``roi``: rectangles of interest, which shape the analysis.
    ``max_pixels``: a file whose header describes more is refused before
    decoding. ``lenient``: use what damaged data still holds.

    Raises :class:`Error` for an image that cannot be used, ``ValueError``
    for a bad request, ``FileNotFoundError`` for a missing file."""
    rois = as_rois(roi)
    if faces:
        _ensure_face_detector()
    rects = _native_rects(rois)
    if isinstance(image, (str, os.PathLike)):
        path = os.fspath(image)
        if not os.path.exists(path):
            raise FileNotFoundError(2, "No such file or directory", path)
        if max_pixels < 1:
            raise ValueError("max_pixels must be at least 1")
        native = _native.Analysis.from_path(path, faces=faces, rects=rects, max_pixels=int(max_pixels),
                                            lenient=lenient)
    else:
        native = _native.Analysis.from_array(_pixels(image), faces=faces, rects=rects)
    return Analysis(native, faces, rois)


def suggest(image: ImageLike, aspect: Optional[AspectLike] = None, **query: Any) -> List[Crop]:
    """One-shot: analyses ``image`` and answers one query (see
    :meth:`Analysis.suggest`)."""
    with analyze(image, faces=bool(query.get("faces")), roi=query.get("roi")) as analysis:
        return analysis.suggest(aspect, **query)


def crop(image: ImageLike, aspect: Optional[AspectLike] = None, **query: Any) -> Any:
    """One-shot: the best crop of ``image`` cut out (see :meth:`Analysis.crop`)."""
    with analyze(image, faces=bool(query.get("faces")), roi=query.get("roi")) as analysis:
        return analysis.crop(image, aspect, **query)
