"""What an answer holds: crops, face boxes, rectangles of interest, and the
record of one photograph in the program's JSON fields."""

from __future__ import annotations

import math
from dataclasses import dataclass
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union

ROI_KINDS = ("wanted", "required", "unwanted", "forbidden")


@dataclass(frozen=True)
class Crop:
    """A suggested crop in full-resolution pixels; ``right`` and ``bottom``
    are inclusive, as in the program's output. ``score`` is the blend the
    crop was ranked by; the other numbers are its features (NaN where the
    library leaves one unset); ``overlap`` is its largest overlap
    (intersection over union) with a crop ranked before it; ``aspect`` the
    requested aspect ratio (width over height) it was made for."""

    left: int
    top: int
    right: int
    bottom: int
    score: float
    aesthetic: float
    coverage: float
    border: float
    peak_share: float
    centre_share: float
    roi_score: float
    well_covered: bool
    overlap: float = 0.0
    aspect: float = 0.0

    @property
    def width(self) -> int:
        return self.right - self.left + 1

    @property
    def height(self) -> int:
        return self.bottom - self.top + 1

    @property
    def box(self) -> Tuple[int, int, int, int]:
        """(left, top, right, bottom) with the right and bottom exclusive, as
        PIL's ``Image.crop`` takes it."""
        return (self.left, self.top, self.right + 1, self.bottom + 1)

    @property
    def slices(self) -> Tuple[slice, slice]:
        """Rows and columns of the crop, for ``array[crop.slices]``."""
        return (slice(self.top, self.bottom + 1), slice(self.left, self.right + 1))


@dataclass(frozen=True)
class Box:
    """A face, inclusive full-resolution pixels."""

    left: int
    top: int
    right: int
    bottom: int


@dataclass(frozen=True)
class Roi:
    """A rectangle of interest, inclusive full-resolution pixels. ``wanted``
    and ``unwanted`` weigh on the ranking; ``required`` and ``forbidden``
    are hard: no crop leaves out (touches) them."""

    kind: str
    left: int
    top: int
    right: int
    bottom: int

    def __post_init__(self) -> None:
        if self.kind not in ROI_KINDS:
            raise ValueError(f"a rectangle's kind is one of {', '.join(ROI_KINDS)}, not {self.kind!r}")


RoiLike = Union[Roi, Tuple[str, int, int, int, int]]


def as_rois(rois: Optional[Sequence[RoiLike]]) -> List[Roi]:
    if rois is None:
        return []
    out = []
    for r in rois:
        if isinstance(r, Roi):
            out.append(r)
        elif isinstance(r, (tuple, list)) and len(r) == 5:
            out.append(Roi(r[0], *(int(v) for v in r[1:])))
        else:
            raise ValueError(f"a rectangle of interest is a Roi or (kind, left, top, right, bottom), not {r!r}")
    return out


def _number(v: float) -> Optional[float]:
    # JSON has no NaN: the program writes null.
    return v if math.isfinite(v) else None


def _aspect(c: Crop) -> float:
    return float(f"{c.aspect:.6g}")  # as the program prints it


def crop_record(rank: int, c: Crop) -> Dict[str, Any]:
    """One suggestion with the program's JSON field names."""
    return {
        "rank": rank, "left": c.left, "top": c.top, "right": c.right, "bottom": c.bottom,
        "width": c.width, "height": c.height, "score": _number(c.score),
        "aestheticScore": _number(c.aesthetic), "coverageScore": _number(c.coverage),
        "borderScore": _number(c.border), "peakShare": _number(c.peak_share),
        "centreShare": _number(c.centre_share), "roiScore": _number(c.roi_score),
        "wellCovered": c.well_covered, "overlap": round(c.overlap, 4),
        "aspect": _aspect(c),
    }


def photo_record(file: str, width: int, height: int, crops: Sequence[Crop],
                 focus: Tuple[float, float], faces: Optional[Sequence[Box]] = None,
                 per_aspect: bool = False) -> Dict[str, Any]:
    """One photograph as the program's JSON has it; ``faces`` only when they
    were asked for; ``per_aspect``: one list per ratio ("groups", ranks
    counted in each) instead of one list."""
    record: Dict[str, Any] = {"file": file, "width": width, "height": height}
    if per_aspect:
        groups: List[Dict[str, Any]] = []
        for c in crops:
            if not groups or groups[-1]["aspect"] != _aspect(c):
                groups.append({"aspect": _aspect(c), "suggestions": []})
            listed = groups[-1]["suggestions"]
            listed.append(crop_record(len(listed) + 1, c))
        record["groups"] = groups
    else:
        record["suggestions"] = [crop_record(k + 1, c) for k, c in enumerate(crops)]
    record["focus"] = {"x": focus[0], "y": focus[1]}
    if faces is not None:
        record["faces"] = [{"left": f.left, "top": f.top, "right": f.right, "bottom": f.bottom}
                           for f in faces]
    return record


def error_record(file: str, error: str) -> Dict[str, Any]:
    return {"file": file, "error": error}
