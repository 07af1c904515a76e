"""The package against the program, its rules on what it is handed, and its
errors."""

import os
import threading

import numpy as np
import pytest
from PIL import Image

import smartcrop
from smartcrop.records import photo_record


def same_record(ours, theirs):
    """Equal as the program prints them: integers exactly, scores to its six
    significant digits, the focus to four decimals."""
    assert ours.keys() == theirs.keys()
    for key in ("file", "width", "height", "faces"):
        assert ours.get(key) == theirs.get(key)
    assert ours["focus"] == pytest.approx(theirs["focus"], abs=6e-5)
    if "groups" in theirs:
        assert [g["aspect"] for g in ours["groups"]] == [g["aspect"] for g in theirs["groups"]]
        pairs = [(a, b) for g, h in zip(ours["groups"], theirs["groups"])
                 for a, b in zip(g["suggestions"], h["suggestions"], strict=True)]
    else:
        pairs = list(zip(ours["suggestions"], theirs["suggestions"], strict=True))
    for a, b in pairs:
        for key, value in b.items():
            # A score the program rounds to a whole number reads back as an int.
            if isinstance(value, float) or isinstance(a[key], float):
                assert a[key] == pytest.approx(value, rel=6e-6, abs=1e-12), key
            else:
                assert a[key] == value, key


@pytest.mark.parametrize("args, query", [
    ((), {}),
    (("--aspect", "16:9", "--count", "3"), {"aspect": "16:9", "count": 3}),
    (("--aspect", "1", "--aspect", "2:3", "--per-aspect", "--count", "2", "--scales", "1,0.7"),
     {"aspect": ["1", "2:3"], "per_aspect": True, "count": 2, "scales": [1, 0.7]}),
    (("--size", "200x150", "--count", "2"), {"size": "200x150", "count": 2}),
    (("--design-defaults", "--aspect", "4:3"), {"aspect": "4:3", "design_defaults": True}),
    (("--faces", "--aspect", "1"), {"aspect": "1", "faces": True}),
    (("--roi", "required:100,120,160,180", "--roi", "forbidden:0,0,40,200", "--aspect", "1", "--aspect", "4:3",
      "--count", "8"),
     {"aspect": ["1", "4:3"], "count": 8, "roi": [("required", 100, 120, 160, 180), ("forbidden", 0, 0, 40, 200)]}),
])
def test_answers_equal_the_programs(photo_paths, program, args, query):
    expected = program(*args, *photo_paths)
    faces = query.get("faces", False)
    for path, theirs in zip(photo_paths, expected):
        with smartcrop.analyze(path, faces=faces) as photo:
            answer = photo.answer(query.get("aspect"), **{k: v for k, v in query.items() if k != "aspect"})
            ours = photo_record(path, photo.width, photo.height, answer.crops, answer.focal_point,
                                answer.faces if faces else None, query.get("per_aspect", False))
        same_record(ours, theirs)


def test_a_query_does_not_depend_on_the_ones_before(scenes):
    paths, _ = scenes
    with smartcrop.analyze(paths[3]) as fresh:
        expected = fresh.suggest("3:2", scales=[0.9, 0.6])
    with smartcrop.analyze(paths[3]) as used:
        used.suggest(["1", "21:9"], scales=[1, 0.5], count=7)
        used.suggest("1", roi=[("wanted", 10, 10, 100, 100)])
        used.suggest(size=(100, 100))
        used.faces  # looking for faces does not make later queries use them
        assert used.suggest("3:2", scales=[0.9, 0.6], roi=[]) == expected


def test_arrays_pil_images_and_files_give_one_answer(scenes):
    paths, _ = scenes
    pixels = np.asarray(Image.open(paths[0]).convert("RGB"))  # a PNG: lossless
    expected = smartcrop.suggest(paths[0], "16:9")
    rgba = np.dstack([pixels, np.full(pixels.shape[:2], 7, np.uint8)])
    padded = np.zeros((pixels.shape[0], pixels.shape[1] + 5, 3), np.uint8)
    padded[:, :-5] = pixels
    for image in (pixels, rgba, Image.fromarray(pixels), padded[:, :-5], np.asfortranarray(pixels)):
        assert smartcrop.suggest(image, "16:9") == expected
    # Channels are read as red, green, blue: reversed, the answer is another.
    assert smartcrop.suggest(pixels[:, :, ::-1], "16:9") != expected
    grey = smartcrop.suggest(pixels[:, :, 1], "16:9")
    assert grey and all(c.right < pixels.shape[1] for c in grey)


def test_crop_cuts_the_best_crop_out(scenes):
    paths, _ = scenes
    pixels = np.asarray(Image.open(paths[0]).convert("RGB"))
    with smartcrop.analyze(pixels) as photo:
        best = photo.suggest("1", count=1)[0]
        cut = photo.crop("1")  # from the array analysed
        assert cut.shape == (best.height, best.width, 3)
        assert np.array_equal(cut, pixels[best.top:best.bottom + 1, best.left:best.right + 1])
        assert photo.crop("1", image=Image.fromarray(pixels)).size == (best.width, best.height)
        with pytest.raises(ValueError, match="the image is 10 x 10, the analysis 360 x 480"):
            photo.crop("1", image=np.zeros((10, 10, 3), np.uint8))
    with smartcrop.analyze(paths[1]) as photo:  # a ratio, not a file's name
        square = photo.crop("1:1")
        assert isinstance(square, Image.Image) and square.width == square.height
    from_file = smartcrop.crop(paths[1], "4:3")
    assert isinstance(from_file, Image.Image) and from_file.width * 3 == pytest.approx(from_file.height * 4, abs=4)


def test_one_focal_point_per_photograph(photo_paths):
    with smartcrop.analyze(photo_paths[0]) as photo:
        point = photo.focal_point
        assert 0 <= point[0] <= 1 and 0 <= point[1] <= 1
        for query in ({}, {"aspect": "16:9", "count": 1}, {"aspect": ["1", "2:3"], "count": 3},
                      {"size": (120, 90)}, {"design_defaults": True}):
            assert photo.answer(**query).focal_point == point, query
        # Once the analysis has looked for faces, the point is on the face.
        face = photo.faces[0]
        x, y = photo.focal_point
        assert face.left <= x * photo.width <= face.right and face.top <= y * photo.height <= face.bottom
        assert photo.answer("1", faces=False).focal_point == (x, y)


@pytest.mark.parametrize("image, query, message", [
    (np.zeros((40, 60, 3), np.float32), {}, "the array's type must be uint8, not float32"),
    (np.zeros((40, 60, 2), np.uint8), {}, "the array must be height x width, or height x width x 3 or 4"),
    (np.zeros((0, 60, 3), np.uint8), {}, "the array has no pixels"),
    (np.zeros((40, 60, 3), np.uint8), {"aspect": "16:0"}, "bad aspect ratio: 16:0"),
    (np.zeros((40, 60, 3), np.uint8), {"aspect": "wide"}, "bad aspect ratio: wide"),
    (np.zeros((40, 60, 3), np.uint8), {"count": 0}, "at least one suggestion must be asked for"),
    (np.zeros((40, 60, 3), np.uint8), {"scales": [1.5]}, "scales lie in (0, 1]"),
    (np.zeros((40, 60, 3), np.uint8), {"size": "7y10"}, "a size is WxH, not 7y10"),
    (np.zeros((40, 60, 3), np.uint8), {"roi": [("kept", 0, 0, 1, 1)]}, "a rectangle's kind is one of"),
    (np.zeros((40, 60, 3), np.uint8), {"roi": [("wanted", 5, 0, 1, 1)]},
     "a rectangle of interest is empty, inverted or of an unknown kind"),
])
def test_bad_requests_are_value_errors(image, query, message):
    with pytest.raises(ValueError) as raised:
        smartcrop.suggest(image, **query)
    assert str(raised.value).startswith(message)


def test_refused_images_are_errors(scenes, tmp_path):
    _, damaged = scenes
    with pytest.raises(smartcrop.Error, match=r"^the JPEG file is truncated \("):
        smartcrop.analyze(damaged)
    assert smartcrop.analyze(damaged, lenient=True).width == 640
    with pytest.raises(smartcrop.Error, match="the image is too thin to crop: 1000 x 1 pixels"):
        smartcrop.analyze(np.zeros((1, 1000, 3), np.uint8))
    with pytest.raises(smartcrop.Error, match="above the pixel limit of 1000$"):
        smartcrop.analyze(damaged, max_pixels=1000)
    (tmp_path / "notes.txt").write_text("not a photograph")
    with pytest.raises(smartcrop.Error):
        smartcrop.analyze(tmp_path / "notes.txt")
    with pytest.raises(FileNotFoundError):
        smartcrop.analyze(tmp_path / "missing.jpg")
    with pytest.raises(TypeError, match="not list"):
        smartcrop.analyze([[1, 2, 3]])
    with pytest.raises(smartcrop.Error, match="ovex3"):
        smartcrop.use_face_detector(str(tmp_path / "ovex3"))


def test_a_closed_analysis_refuses_queries_and_threads_share_one_safely(scenes):
    paths, _ = scenes
    photo = smartcrop.analyze(paths[2])
    expected = photo.suggest("1")
    answers = []
    threads = [threading.Thread(target=lambda: answers.append(photo.suggest("1"))) for _ in range(4)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert answers == [expected] * 4
    with photo:
        pass
    assert photo.closed and "closed" in repr(photo)
    with pytest.raises(ValueError, match="the analysis is closed"):
        photo.suggest("1")
    photo.close()  # twice is harmless


def test_every_surface_takes_every_request_option(photo_paths, program):
    """The request options are the host layer's: the program, the Python
    package and the Dask command take the same ones, so an option added
    there cannot be missed here."""
    import inspect
    import subprocess
    import sys

    from smartcrop import _native
    names = {name for name, _, _, _ in _native.request_options()}
    python = set(inspect.signature(smartcrop.Analysis.suggest).parameters) - {"self"}
    python |= set(inspect.signature(smartcrop.analyze).parameters) - {"image", "channels"}
    assert python == {n.replace("-", "_") for n in names}
    program_help = subprocess.run([os.environ["SMARTCROP_CLI"], "--help"], capture_output=True, text=True).stdout
    dask_help = subprocess.run([sys.executable, "-m", "smartcrop.dask", "--help"], capture_output=True,
                               text=True, env=dict(os.environ, COLUMNS="200")).stdout
    for name in names:
        assert f"--{name}" in program_help and f"--{name}" in dask_help, name
    # All of them at once, in Python's types, answer as the program does.
    every = dict(aspect=(4, 3), scales=[1, 0.8], count=2, per_aspect=True, faces=False,
                 roi=[("wanted", 10, 10, 60, 60)], design_defaults=True, mode=1,
                 weights=[1, 1, 1, 0, 0, 1], max_pixels=10**8, lenient=True)
    assert set(every) | {"size"} == python
    ours = smartcrop.suggest(photo_paths[0], **every)
    theirs = program("--aspect", "4:3", "--scales", "1,0.8", "--count", "2", "--per-aspect",
                     "--roi", "wanted:10,10,60,60", "--design-defaults", "--mode", "1", "--weights",
                     "1,1,1,0,0,1", "--max-pixels", "100000000", "--lenient", photo_paths[0])
    assert [c.box for c in ours] == [(s["left"], s["top"], s["right"] + 1, s["bottom"] + 1)
                                     for g in theirs[0]["groups"] for s in g["suggestions"]]


def test_a_pair_is_one_ratio_and_a_mode_needs_the_design_ranking(photo_paths):
    with smartcrop.analyze(photo_paths[0]) as photo:
        wide = photo.suggest((16, 9), count=1)[0]
        assert wide.width / wide.height == pytest.approx(16 / 9, abs=0.02)
        assert photo.suggest(scales=0.5, aspect="1", count=1)[0].width <= photo.width // 2 + 1
        with pytest.raises(ValueError, match="ask for design-defaults"):
            photo.suggest("1", mode=2)
        assert photo.suggest(size=(64, 40)) == photo.suggest(size=(64, 40))  # the same size twice
    assert smartcrop.parse_aspect((3, 2)) == 1.5


def test_opencv_arrays_are_read_as_blue_green_red(scenes):
    paths, _ = scenes
    rgb = np.asarray(Image.open(paths[4]).convert("RGB"))
    expected = smartcrop.suggest(rgb, "1", count=3)
    for bgr in (rgb[:, :, ::-1], np.dstack([rgb[:, :, ::-1], np.full(rgb.shape[:2], 255, np.uint8)])):
        assert smartcrop.suggest(np.ascontiguousarray(bgr), "1", count=3, channels="bgr") == expected
    with pytest.raises(ValueError, match="channels"):
        smartcrop.suggest(rgb, channels="hsv")
