"""Analysing a photograph once and asking it for crops."""

from __future__ import annotations

import os
import threading
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, List, Optional, Sequence, Tuple, Union, overload

import numpy as np

from . import _native
from .records import Box, Crop, Roi, RoiLike, as_rois

if TYPE_CHECKING:  # PIL is needed only when a PIL image is handed in
    from PIL import Image as PILImage

Error = _native.Error

ImageLike = Union[np.ndarray, "PILImage.Image", str, "os.PathLike[str]"]
RatioLike = Union[str, float, Tuple[float, float]]
AspectLike = Union[RatioLike, Sequence[RatioLike]]
SizeLike = Union[None, str, Tuple[int, int]]
ScalesLike = Union[None, float, Sequence[float]]

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


def _number(v: Any) -> str:
    if isinstance(v, bool) or not isinstance(v, (int, float, np.integer, np.floating)):
        raise ValueError(f"a number, not {v!r}")
    return str(int(v)) if isinstance(v, (int, np.integer)) else repr(float(v))


def _ratio_text(aspect: Any) -> str:
    # A pair of numbers is one ratio, width to height.
    if isinstance(aspect, str):
        return aspect
    if isinstance(aspect, tuple) and len(aspect) == 2:
        return f"{_number(aspect[0])}:{_number(aspect[1])}"
    return _number(aspect)


def _aspect_texts(aspect: Any) -> List[str]:
    if isinstance(aspect, (str, int, float, np.number)) or (isinstance(aspect, tuple) and len(aspect) == 2):
        return [_ratio_text(aspect)]
    return [_ratio_text(a) for a in aspect]


def _size_text(size: Any) -> str:
    if isinstance(size, str):
        return size
    try:
        w, h = size
    except (TypeError, ValueError):
        raise ValueError(f"a size is (width, height) or \"WxH\", not {size!r}") from None
    return f"{_number(w)}x{_number(h)}"


def _list_text(values: Any) -> str:
    if isinstance(values, (int, float, np.number)):
        return _number(values)
    return ",".join(_number(v) for v in values)


def _roi_texts(rois: Any) -> List[str]:
    return [f"{r.kind}:{r.left},{r.top},{r.right},{r.bottom}" for r in as_rois(rois)]


# Each request option's value as the host layer's text form; switches and
# numbers need nothing of their own. The options themselves, their checks
# and their help are the host layer's (``_native.request_options()``).
_TEXT_FORMS = {"aspect": _aspect_texts, "size": _size_text, "scales": _list_text,
               "weights": _list_text, "roi": _roi_texts}
_OPTIONS = {name.replace("-", "_"): (name, switch, repeatable)
            for name, switch, repeatable, _ in _native.request_options()}


def parse_aspect(aspect: RatioLike) -> float:
    """``"16:9"``, ``"1.5"``, ``1.5`` or ``(16, 9)`` to a ratio; ``ValueError``
    for anything else."""
    return _native.parse_ratio(_ratio_text(aspect))


def option_texts(**options: Any) -> List[Tuple[str, str]]:
    """The host layer's (name, text) pairs for keyword options; ``None``
    leaves an option at its default. ``ValueError`` for a bad value,
    ``TypeError`` for an unknown name."""
    texts: List[Tuple[str, str]] = []
    for key, value in options.items():
        if key not in _OPTIONS:
            raise TypeError(f"no option is called {key!r}")
        if value is None:
            continue
        name, switch, repeatable = _OPTIONS[key]
        if switch:
            if value:
                texts.append((name, ""))
            continue
        form = _TEXT_FORMS.get(key, _number)
        made = form(value)
        texts.extend((name, t) for t in (made if isinstance(made, list) else [made]))
    return texts


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
        if image.mode == "F":
            raise ValueError("a PIL image of mode F (floating point) has no fixed range of "
                             "values: convert it to 8 bits first")
        if image.mode == "I" or image.mode.startswith("I;16"):
            # Grey of 16 bits (PIL opens 16-bit PNG and TIFF so): its high
            # byte, as the file decoders reduce 16 bits to 8.
            wide = np.asarray(image).astype(np.int64)
            return np.ascontiguousarray((np.clip(wide, 0, 65535) >> 8).astype(np.uint8))
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

    def __init__(self, native: "_native.Analysis", faces: bool, roi: Sequence[Roi],
                 source: ImageLike) -> None:
        self._native = native
        self._faces = faces
        self._roi = list(roi)
        # What crop() cuts from: the caller's array or PIL image as handed
        # in (not copied), or the file's path, opened again at full size.
        self._source = source

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

    def answer(self, aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
               scales: ScalesLike = None, count: int = 5, per_aspect: bool = False,
               faces: Optional[bool] = None, roi: Optional[Sequence[RoiLike]] = None,
               design_defaults: bool = False, mode: Optional[int] = None,
               weights: Optional[Sequence[float]] = None) -> Answer:
        """The full answer of :meth:`suggest`, with the faces and the focal point."""
        use_faces = self._faces if faces is None else bool(faces)
        rois = self._roi if roi is None else as_rois(roi)
        texts = option_texts(aspect=aspect, size=size, scales=scales, count=count,
                             per_aspect=per_aspect, faces=use_faces, roi=rois,
                             design_defaults=design_defaults, mode=mode, weights=weights)
        if use_faces:
            _ensure_face_detector()
        crops, boxes, focus = self._native.suggest(texts)
        self._roi = rois
        return Answer([Crop(*c) for c in crops], [Box(*b) for b in boxes], focus)

    def suggest(self, aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
                scales: ScalesLike = None, count: int = 5, per_aspect: bool = False,
                faces: Optional[bool] = None, roi: Optional[Sequence[RoiLike]] = None,
                design_defaults: bool = False, mode: Optional[int] = None,
                weights: Optional[Sequence[float]] = None) -> List[Crop]:
        """Ranked crops, best first.

        ``aspect``: one ratio (``"16:9"``, ``1.5``, ``(16, 9)``) or a list of
        them; by default 1:1 4:3 3:4 3:2 2:3 16:9 9:16. ``size``: one exact
        crop size ``(w, h)`` or ``"WxH"`` instead. ``scales``: shares of the
        image's extent in (0, 1], one or a list. ``count``: suggestions (per
        ratio with ``per_aspect``). ``faces``: let faces count (default: as
        asked of :func:`analyze`). ``roi``: rectangles of interest (default:
        those of the last query, else of :func:`analyze`); other rectangles,
        or faces on an analysis made without them, analyse the image again.
        ``design_defaults``: the library's own ranking as designed, which
        ``mode`` and ``weights`` tune.

        Raises ``ValueError`` for a request this image cannot answer."""
        return self.answer(aspect, size=size, scales=scales, count=count, per_aspect=per_aspect,
                           faces=faces, roi=roi, design_defaults=design_defaults, mode=mode,
                           weights=weights).crops

    @property
    def faces(self) -> List[Box]:
        """The faces found, as the library counts them: the detector's boxes
        widened 1.5 times about their centres, full-resolution pixels. An
        analysis made without faces looks for them once, here."""
        if not self._native.looked_for_faces:
            self.answer(faces=True, count=1)
        return [Box(*b) for b in self._native.faces()]

    @property
    def focal_point(self) -> Tuple[float, float]:
        """Where a page should keep its focus when it crops by itself (CSS
        ``object-position``), as fractions of the width and the height: one
        point for the photograph, whatever is asked of it (on the faces when
        the analysis has looked for them)."""
        return self._native.focal_point()

    def crop(self, aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
             scales: ScalesLike = None, faces: Optional[bool] = None,
             roi: Optional[Sequence[RoiLike]] = None, design_defaults: bool = False,
             mode: Optional[int] = None, weights: Optional[Sequence[float]] = None,
             image: Optional[ImageLike] = None) -> Union[np.ndarray, "PILImage.Image"]:
        """The best crop for the query (see :meth:`suggest`), cut out of the
        photograph analysed at full resolution: an array for an array, a PIL
        image for a PIL image or a path. ``image``: cut from this one instead
        (the same photograph, at full size)."""
        best = self.suggest(aspect, size=size, scales=scales, count=1, faces=faces, roi=roi,
                            design_defaults=design_defaults, mode=mode, weights=weights)[0]
        source = self._source if image is None else image
        if isinstance(source, np.ndarray):
            if source.shape[:2] != (self.height, self.width):
                raise ValueError(f"the image is {source.shape[1]} x {source.shape[0]}, "
                                 f"the analysis {self.width} x {self.height}")
            return source[best.slices].copy()
        if isinstance(source, (str, os.PathLike)):
            from PIL import Image, ImageOps
            with Image.open(source) as opened:
                source = ImageOps.exif_transpose(opened)
                source.load()
        if source.size != (self.width, self.height):
            raise ValueError(f"the image is {source.size[0]} x {source.size[1]}, "
                             f"the analysis {self.width} x {self.height}")
        return source.crop(best.box)

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
            max_pixels: int = DEFAULT_MAX_PIXELS, lenient: bool = False,
            channels: str = "rgb") -> Analysis:
    """Analyses a photograph: a NumPy array (height x width x 3 or 4, uint8,
    RGB or RGBA), a PIL image, or a path (JPEG, PNG, WebP and more, EXIF
    orientation applied; a large JPEG is decoded reduced, as much as the
    analysis allows).

    ``faces``: find faces now (needed for the decoding size a path gets for
    them). ``roi``: rectangles of interest, which shape the analysis.
    ``max_pixels``: a file whose header describes more is refused before
    decoding. ``lenient``: use what damaged data still holds. ``channels``:
    the order of an array's colours, ``"rgb"`` (NumPy, PIL) or ``"bgr"``
    (OpenCV's ``imread`` and frames); ignored for grey arrays and files.

    Raises :class:`Error` for an image that cannot be used, ``ValueError``
    for a bad request, ``FileNotFoundError`` for a missing file."""
    rois = as_rois(roi)
    if channels not in ("rgb", "bgr"):
        raise ValueError(f"channels is \"rgb\" or \"bgr\", not {channels!r}")
    texts = option_texts(faces=faces, roi=rois, max_pixels=max_pixels, lenient=lenient)
    if faces:
        _ensure_face_detector()
    if isinstance(image, (str, os.PathLike)):
        path = os.fspath(image)
        if not os.path.exists(path):
            raise FileNotFoundError(2, "No such file or directory", path)
        native = _native.Analysis.from_path(path, texts)
    else:
        if channels == "bgr" and not isinstance(image, np.ndarray):
            raise ValueError("channels=\"bgr\" describes an array; a PIL image knows its own")
        native = _native.Analysis.from_array(_pixels(image), texts, bgr=channels == "bgr")
    return Analysis(native, faces, rois, image)


def suggest(image: ImageLike, aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
            scales: ScalesLike = None, count: int = 5, per_aspect: bool = False,
            faces: bool = False, roi: Optional[Sequence[RoiLike]] = None,
            design_defaults: bool = False, mode: Optional[int] = None,
            weights: Optional[Sequence[float]] = None, max_pixels: int = DEFAULT_MAX_PIXELS,
            lenient: bool = False, channels: str = "rgb") -> List[Crop]:
    """One-shot: analyses ``image`` (see :func:`analyze`) and answers one
    query (see :meth:`Analysis.suggest`)."""
    with analyze(image, faces=faces, roi=roi, max_pixels=max_pixels, lenient=lenient,
                 channels=channels) as analysis:
        return analysis.suggest(aspect, size=size, scales=scales, count=count,
                                per_aspect=per_aspect, design_defaults=design_defaults,
                                mode=mode, weights=weights)


@overload
def crop(image: np.ndarray, aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
         scales: ScalesLike = None, faces: bool = False, roi: Optional[Sequence[RoiLike]] = None,
         design_defaults: bool = False, mode: Optional[int] = None,
         weights: Optional[Sequence[float]] = None, max_pixels: int = DEFAULT_MAX_PIXELS,
         lenient: bool = False, channels: str = "rgb") -> np.ndarray: ...
@overload
def crop(image: Union["PILImage.Image", str, "os.PathLike[str]"],
         aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
         scales: ScalesLike = None, faces: bool = False, roi: Optional[Sequence[RoiLike]] = None,
         design_defaults: bool = False, mode: Optional[int] = None,
         weights: Optional[Sequence[float]] = None, max_pixels: int = DEFAULT_MAX_PIXELS,
         lenient: bool = False, channels: str = "rgb") -> "PILImage.Image": ...
def crop(image: ImageLike, aspect: Optional[AspectLike] = None, *, size: SizeLike = None,
         scales: ScalesLike = None, faces: bool = False, roi: Optional[Sequence[RoiLike]] = None,
         design_defaults: bool = False, mode: Optional[int] = None,
         weights: Optional[Sequence[float]] = None, max_pixels: int = DEFAULT_MAX_PIXELS,
         lenient: bool = False, channels: str = "rgb") -> Union[np.ndarray, "PILImage.Image"]:
    """One-shot: the best crop of ``image`` cut out (see :meth:`Analysis.crop`):
    an array for an array, a PIL image for a PIL image or a path."""
    with analyze(image, faces=faces, roi=roi, max_pixels=max_pixels, lenient=lenient,
                 channels=channels) as analysis:
        return analysis.crop(aspect, size=size, scales=scales, design_defaults=design_defaults,
                             mode=mode, weights=weights)


def answer_options(path: Union[str, "os.PathLike[str]"],
                   texts: Sequence[Tuple[str, str]]) -> Tuple[int, int, Answer, bool]:
    """One photograph answered from the host layer's (name, text) options,
    as a command line gives them: its width, height, answer, and whether
    faces were asked for."""
    faces = ("faces", "") in texts
    if faces:
        _ensure_face_detector()
    path = os.fspath(path)
    if not os.path.exists(path):
        raise FileNotFoundError(2, "No such file or directory", path)
    native = _native.Analysis.from_path(path, list(texts))
    try:
        crops, boxes, focus = native.suggest(list(texts))
        answer = Answer([Crop(*c) for c in crops], [Box(*b) for b in boxes], focus)
        return native.width, native.height, answer, faces
    finally:
        native.close()
