"""smartcrop: good crops of photographs.

    import smartcrop
    with smartcrop.analyze("photo.jpg") as photo:
        best = photo.suggest("16:9", count=3)[0]
        print(best.box, best.score, photo.focal_point)
    thumb = smartcrop.crop("photo.jpg", "1:1")      # a PIL image

The photograph is analysed once; each query on the analysis is cheap. The
work runs with the interpreter lock released, so threads crop in parallel
(one analysis per thread). For many photographs on a Dask cluster see
``smartcrop.dask``.
"""

from .analysis import (Analysis, Answer, Error, analyze, crop, packaged_face_detector, parse_aspect,
                       suggest, use_face_detector)
from .records import Box, Crop, Roi

__version__ = "0.1.0"

__all__ = ["Analysis", "Answer", "Box", "Crop", "Error", "Roi", "analyze", "crop",
           "packaged_face_detector", "parse_aspect", "suggest", "use_face_detector"]
