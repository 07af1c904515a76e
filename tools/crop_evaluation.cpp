// crop_evaluation: the host layer against the library's own ranking, side by
// side, on photographs with people and on generated scenes.
//   crop_evaluation DETECTOR_CONFIG HAAR_CASCADE PHOTO... [-- PHOTO...]
// Reference faces come from OpenCV's Haar cascade, not from our detector;
// photographs after "--" count only for the suggestions' overlap and ratios
// (on photographs without people a cascade finds faces in textures).
// Printed for each ranking: on the photographs, the share of (photo, ratio)
// cases whose top crop holds every face where some crop of that ratio could,
// and the share whose top crop cuts a face; on generated scenes (a sharp
// subject on a defocused ground, anywhere up to flush with an edge) the
// share whose top crop keeps 95% of the subject; over everything, the
// median pairwise overlap of the default five suggestions and the mean
// number of distinct ratios among them. SMARTCROP_EVALUATION_VERBOSE=1
// lists every failure on standard error.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "host/analysed_image.h"
#include "host/face_detector_setup.h"

namespace {

namespace host = smartCrop::host;
using smartCrop::CropRect;

const double kRatios[] = {1.0, 16.0 / 9, 9.0 / 16, 4.0 / 5};

struct Tally {
    int faceCases = 0, allInside = 0, fitCases = 0, cutCases = 0, cuts = 0;
    int scenes = 0, kept = 0;
    // Ranks 2 to 5: on the photographs, those cutting a face (faces on and
    // off); on the scenes, those keeping 95% of the subject.
    int alternatives[2] = {0, 0}, alternativeCuts[2] = {0, 0};
    int sceneAlternatives = 0, alternativesKept = 0;
    int focusOnSubject = 0;  // scenes whose focal point lies on the subject
    // Top crops on the scenes: those whose side (off the image's frame)
    // touches or cuts the subject, and their area over the largest crop of
    // their ratio.
    int touches = 0;
    double areaShare = 0;
    std::vector<double> overlaps;
    int answers = 0, ratioCount = 0;
};

int64_t overlap(const cv::Rect& a, const CropRect& c) {
    return (a & cv::Rect(c.left, c.top, c.right - c.left + 1, c.bottom - c.top + 1)).area();
}

double iou(const CropRect& a, const CropRect& b) {
    const cv::Rect ra(a.left, a.top, a.right - a.left + 1, a.bottom - a.top + 1);
    const cv::Rect rb(b.left, b.top, b.right - b.left + 1, b.bottom - b.top + 1);
    const double i = (ra & rb).area();
    return i / (ra.area() + rb.area() - i);
}

host::DecodedImage decoded_from(const cv::Mat& bgr) {
    return host::pixels_image(bgr.data, static_cast<uint32_t>(bgr.cols),
                              static_cast<uint32_t>(bgr.rows), bgr.step, host::ChannelOrder::Bgr);
}

host::CropAnswer answer(const cv::Mat& bgr, const std::vector<double>& ratios, bool faces,
                        bool plain) {
    host::CropRequest request;
    request.aspects = ratios;
    request.faces = faces;
    request.designDefaults = plain;
    return host::AnalysedImage(decoded_from(bgr), request).suggest();
}

// The largest crop of the ratio inside the image holds the faces' bounds.
bool fits(const cv::Rect& bounds, double ratio, int W, int H) {
    const double w = std::min<double>(W, H * ratio), h = w / ratio;
    return bounds.width <= w && bounds.height <= h;
}

void default_answer(const cv::Mat& bgr, bool faces, bool plain, Tally& t) {
    const std::vector<CropRect> crops =
        answer(bgr, host::CropRequest().aspects, faces, plain).crops;
    std::vector<double> ratios;
    for (size_t i = 0; i < crops.size(); ++i) {
        ratios.push_back(std::round(100.0 * (crops[i].right - crops[i].left + 1) /
                                    (crops[i].bottom - crops[i].top + 1)));
        for (size_t j = 0; j < i; ++j) t.overlaps.push_back(iou(crops[i], crops[j]));
    }
    std::sort(ratios.begin(), ratios.end());
    t.ratioCount += static_cast<int>(std::unique(ratios.begin(), ratios.end()) - ratios.begin());
    ++t.answers;
}

bool cuts_a_face(const std::vector<cv::Rect>& faces, const CropRect& c) {
    for (const cv::Rect& f : faces) {
        const int64_t in = overlap(f, c);
        if (in > 0 && in < f.area()) return true;
    }
    return false;
}

void photograph(const cv::Mat& bgr, cv::CascadeClassifier* haar, bool plain, Tally& t) {
    default_answer(bgr, true, plain, t);
    if (haar == nullptr) return;
    cv::Mat grey;
    cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
    std::vector<cv::Rect> faces;
    const int smallest = std::min(bgr.cols, bgr.rows) / 20;
    haar->detectMultiScale(grey, faces, 1.1, 5, 0, cv::Size(smallest, smallest));
    if (faces.empty()) return;
    cv::Rect bounds = faces[0];
    for (const cv::Rect& f : faces) bounds |= f;
    for (double ratio : kRatios) {
        const std::vector<CropRect> crops = answer(bgr, {ratio}, true, plain).crops;
        const CropRect top = crops.at(0);
        for (int withFaces = 1; withFaces >= 0; --withFaces) {
            const std::vector<CropRect> list =
                withFaces ? crops : answer(bgr, {ratio}, false, plain).crops;
            for (size_t k = 1; k < list.size(); ++k) {
                ++t.alternatives[withFaces];
                t.alternativeCuts[withFaces] += cuts_a_face(faces, list[k]);
            }
        }
        ++t.faceCases;
        if (fits(bounds, ratio, bgr.cols, bgr.rows)) {
            ++t.fitCases;
            bool all = true;
            for (const cv::Rect& f : faces) all = all && overlap(f, top) == f.area();
            t.allInside += all;
        }
        const bool cut = cuts_a_face(faces, top);
        ++t.cutCases;
        t.cuts += cut;
        if (cut && std::getenv("SMARTCROP_EVALUATION_VERBOSE")) {
            std::fprintf(stderr, "%s: a face cut at ratio %.2f by %d,%d-%d,%d; faces",
                         plain ? "library" : "layer", ratio, top.left, top.top, top.right,
                         top.bottom);
            for (const cv::Rect& f : faces)
                std::fprintf(stderr, " %d,%d %dx%d", f.x, f.y, f.width, f.height);
            std::fprintf(stderr, "\n");
        }
    }
}

// A sharp textured disc on a blurred ground of stripes or a horizon, its
// centre anywhere, its edge up to flush with the image's edge.
void scene(std::mt19937& rng, bool plain, Tally& t) {
    const int W = 640, H = 427;
    cv::Mat ground(H, W, CV_8UC3);
    std::uniform_int_distribution<int> colour(40, 220), kind(0, 2);
    const int k = kind(rng);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const bool band = k == 0 ? (x / 40) % 2 : k == 1 ? y > H / 2 : ((x + y) / 60) % 2;
            ground.at<cv::Vec3b>(y, x) = band ? cv::Vec3b(200, 180, 120) : cv::Vec3b(60, 90, 40);
        }
    cv::GaussianBlur(ground, ground, cv::Size(0, 0), 9);
    std::uniform_int_distribution<int> radius(30, 60);
    const int r = radius(rng);
    std::uniform_int_distribution<int> cx(r, W - 1 - r), cy(r, H - 1 - r), edge(0, 4), gap(0, 16);
    int x = cx(rng), y = cy(rng);
    switch (edge(rng)) {  // one scene in five is anywhere
        case 0:
            x = r + gap(rng);
            break;
        case 1:
            x = W - 1 - r - gap(rng);
            break;
        case 2:
            y = r + gap(rng);
            break;
        case 3:
            y = H - 1 - r - gap(rng);
            break;
        default:
            break;
    }
    cv::Mat subject = cv::Mat::zeros(H, W, CV_8U);
    cv::circle(subject, cv::Point(x, y), r, 255, cv::FILLED);
    const cv::Vec3b a(colour(rng), colour(rng), colour(rng)), b(colour(rng), 30, 200);
    for (int yy = 0; yy < H; ++yy)
        for (int xx = 0; xx < W; ++xx)
            if (subject.at<uint8_t>(yy, xx))
                ground.at<cv::Vec3b>(yy, xx) = ((xx / 4 + yy / 4) % 2) ? a : b;
    const int area = cv::countNonZero(subject);
    // The share of the subject inside a crop; kept at 95%.
    const auto held = [&](const CropRect& c) {
        return static_cast<double>(cv::countNonZero(
                   subject(cv::Rect(c.left, c.top, c.right - c.left + 1, c.bottom - c.top + 1)))) /
               area;
    };
    const host::FocalPoint focus = answer(ground, {1.0}, false, plain).focus;
    t.focusOnSubject += std::hypot(focus.x * W - x, focus.y * H - y) <= r;
    for (double ratio : kRatios) {
        const std::vector<CropRect> crops = answer(ground, {ratio}, false, plain).crops;
        const CropRect c = crops.at(0);
        ++t.scenes;
        t.touches += (c.left > 0 && x - r <= c.left) || (c.top > 0 && y - r <= c.top) ||
                     (c.right < W - 1 && x + r >= c.right) ||
                     (c.bottom < H - 1 && y + r >= c.bottom);
        const double largest = std::min<double>(W, H * ratio) * std::min<double>(H, W / ratio);
        t.areaShare += (c.right - c.left + 1.0) * (c.bottom - c.top + 1.0) / largest;
        for (size_t k = 1; k < crops.size(); ++k) {
            ++t.sceneAlternatives;
            t.alternativesKept += held(crops[k]) >= 0.95;
        }
        const bool kept = held(c) >= 0.95;
        t.kept += kept;
        if (!kept && std::getenv("SMARTCROP_EVALUATION_VERBOSE")) {
            std::fprintf(
                stderr, "%s: scene %d ratio %.2f subject (%d,%d) r %d kept %.2f crop %d,%d-%d,%d\n",
                plain ? "library" : "layer", t.scenes / 4, ratio, x, y, r, held(c), c.left, c.top,
                c.right, c.bottom);
        }
    }
}

// A photograph's labelled subject (data/labelled-subjects.tsv): the box that
// must stay whole and the larger one that should, as fractions.
struct Subject {
    std::string photo;
    double essential[4], preferred[4];
    bool hasPreferred = false;
};

std::vector<Subject> read_subjects(const std::string& path) {
    std::vector<Subject> out;
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);  // the header
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        Subject s;
        std::string kind, essential, preferred;
        std::getline(fields, s.photo, '\t');
        std::getline(fields, kind, '\t');
        std::getline(fields, essential, '\t');
        std::getline(fields, preferred, '\t');
        std::istringstream e(essential), p(preferred);
        for (double& v : s.essential) e >> v;
        s.hasPreferred = preferred != "-";
        if (s.hasPreferred)
            for (double& v : s.preferred) p >> v;
        if (!s.photo.empty()) out.push_back(s);
    }
    return out;
}

// Per method (the library's ranking, the host layer, the centre crop), over
// the (photograph, ratio) cases where a crop of the ratio can hold the box.
struct SubjectTally {
    int cases = 0, kept = 0, cramped = 0, preferredCases = 0, preferredKept = 0;
    double areaShare = 0;
};

const double kSubjectRatios[] = {1.0, 16.0 / 9, 2.0 / 3};

void labelled(const cv::Mat& bgr, const Subject& s, SubjectTally tallies[3]) {
    const int W = bgr.cols, H = bgr.rows;
    // Labels are drawn by eye: a crop within 1% of the image of the box
    // still holds it.
    const auto box = [&](const double* f, int slack) {
        return cv::Rect(
            cv::Point(static_cast<int>(f[0] * W) + slack, static_cast<int>(f[1] * H) + slack),
            cv::Point(static_cast<int>(f[2] * W) - slack, static_cast<int>(f[3] * H) - slack));
    };
    const int slack = std::max(W, H) / 100;
    const cv::Rect essential = box(s.essential, slack), preferred = box(s.preferred, slack);
    for (double ratio : kSubjectRatios) {
        const double cw = std::min<double>(W, H * ratio), ch = std::min<double>(H, W / ratio);
        CropRect centre;
        centre.left = static_cast<int>((W - cw) / 2);
        centre.top = static_cast<int>((H - ch) / 2);
        centre.right = centre.left + static_cast<int>(cw) - 1;
        centre.bottom = centre.top + static_cast<int>(ch) - 1;
        const CropRect tops[3] = {answer(bgr, {ratio}, true, true).crops.at(0),
                                  answer(bgr, {ratio}, true, false).crops.at(0), centre};
        for (int m = 0; m < 3; ++m) {
            const CropRect& c = tops[m];
            SubjectTally& t = tallies[m];
            if (essential.width <= cw && essential.height <= ch) {
                ++t.cases;
                const bool kept = overlap(essential, c) == essential.area();
                t.kept += kept;
                // Kept, but with a side of the crop (off the image's frame)
                // within 1% of the image of the subject.
                t.cramped += kept && ((c.left > 0 && essential.x - c.left < slack) ||
                                      (c.top > 0 && essential.y - c.top < slack) ||
                                      (c.right < W - 1 && c.right - essential.br().x < slack) ||
                                      (c.bottom < H - 1 && c.bottom - essential.br().y < slack));
                t.areaShare += (c.right - c.left + 1.0) * (c.bottom - c.top + 1.0) / (cw * ch);
                if (!kept && std::getenv("SMARTCROP_EVALUATION_VERBOSE"))
                    std::fprintf(stderr, "method %d cuts the subject of %s at %.2f\n", m,
                                 s.photo.c_str(), ratio);
            }
            if (s.hasPreferred && preferred.width <= cw && preferred.height <= ch) {
                ++t.preferredCases;
                t.preferredKept += overlap(preferred, c) == preferred.area();
            }
        }
    }
}

double median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    return v[v.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr,
                     "usage: %s DETECTOR_CONFIG HAAR_CASCADE [--subjects TSV] PHOTO... "
                     "[-- PHOTO...]\n",
                     argv[0]);
        return 2;
    }
    std::vector<Subject> subjects;
    int first = 3;
    if (argc > 4 && std::string(argv[3]) == "--subjects") {
        subjects = read_subjects(argv[4]);
        first = 5;
    }
    host::use_face_detector(argv[1]);
    cv::CascadeClassifier haar(argv[2]);
    if (haar.empty()) {
        std::fprintf(stderr, "%s: not a cascade\n", argv[2]);
        return 1;
    }
    Tally tally[2];  // the library's ranking, the host layer
    for (int plain = 1; plain >= 0; --plain) {
        Tally& t = tally[1 - plain];
        bool withFaces = true;
        for (int i = first; i < argc; ++i) {
            if (std::string(argv[i]) == "--") {
                withFaces = false;
                continue;
            }
            const cv::Mat bgr = cv::imread(argv[i], cv::IMREAD_COLOR);
            if (bgr.empty()) {
                std::fprintf(stderr, "%s: cannot read the image\n", argv[i]);
                return 1;
            }
            photograph(bgr, withFaces ? &haar : nullptr, plain, t);
        }
        std::mt19937 rng(2026);
        for (int s = 0; s < 60; ++s) scene(rng, plain, t);
    }
    std::printf("%-44s %12s %12s\n", "", "library", "host layer");
    auto row = [&](const char* what, double a, double b) {
        std::printf("%-44s %12.3f %12.3f\n", what, a, b);
    };
    auto share = [](int n, int d) { return d > 0 ? static_cast<double>(n) / d : 0.0; };
    row("every face inside, where some crop holds all",
        share(tally[0].allInside, tally[0].fitCases), share(tally[1].allInside, tally[1].fitCases));
    row("top crop cuts a face", share(tally[0].cuts, tally[0].cutCases),
        share(tally[1].cuts, tally[1].cutCases));
    row("subject kept (generated scenes)", share(tally[0].kept, tally[0].scenes),
        share(tally[1].kept, tally[1].scenes));
    row("top crop touches the subject (scenes)", share(tally[0].touches, tally[0].scenes),
        share(tally[1].touches, tally[1].scenes));
    row("top crop's area over its ratio's largest (scenes)",
        tally[0].areaShare / std::max(1, tally[0].scenes),
        tally[1].areaShare / std::max(1, tally[1].scenes));
    row("alternatives cutting a face (faces on)",
        share(tally[0].alternativeCuts[1], tally[0].alternatives[1]),
        share(tally[1].alternativeCuts[1], tally[1].alternatives[1]));
    row("alternatives cutting a face (faces off)",
        share(tally[0].alternativeCuts[0], tally[0].alternatives[0]),
        share(tally[1].alternativeCuts[0], tally[1].alternatives[0]));
    row("alternatives keeping the subject (scenes)",
        share(tally[0].alternativesKept, tally[0].sceneAlternatives),
        share(tally[1].alternativesKept, tally[1].sceneAlternatives));
    row("focal point on the subject (scenes)", share(tally[0].focusOnSubject, tally[0].scenes / 4),
        share(tally[1].focusOnSubject, tally[1].scenes / 4));
    row("median pairwise overlap of the five", median(tally[0].overlaps),
        median(tally[1].overlaps));
    row("distinct ratios among the five", share(tally[0].ratioCount, tally[0].answers),
        share(tally[1].ratioCount, tally[1].answers));
    std::printf("(%d face cases, %d that fit, %d scenes x ratios, %d default answers)\n",
                tally[1].faceCases, tally[1].fitCases, tally[1].scenes, tally[1].answers);
    if (subjects.empty()) return 0;
    // Labelled subjects: each photograph named in the list, wherever it was given.
    SubjectTally byMethod[3];
    int photos = 0;
    for (const Subject& s : subjects) {
        for (int i = first; i < argc; ++i) {
            const std::string path = argv[i];
            if (path.size() < s.photo.size() ||
                path.compare(path.size() - s.photo.size(), s.photo.size(), s.photo) != 0)
                continue;
            labelled(cv::imread(path, cv::IMREAD_COLOR), s, byMethod);
            ++photos;
            break;
        }
    }
    std::printf("\n%-44s %12s %12s %12s\n", "labelled subjects (1:1, 16:9, 2:3)", "library",
                "host layer", "centre");
    auto row3 = [&](const char* what, auto value) {
        std::printf("%-44s %12.3f %12.3f %12.3f\n", what, value(byMethod[0]), value(byMethod[1]),
                    value(byMethod[2]));
    };
    row3("subject kept whole, where a crop can",
         [&](const SubjectTally& t) { return share(t.kept, t.cases); });
    row3("kept, but a crop side within 1% of it",
         [&](const SubjectTally& t) { return share(t.cramped, t.cases); });
    row3("larger preferred box kept, where a crop can",
         [&](const SubjectTally& t) { return share(t.preferredKept, t.preferredCases); });
    row3("top crop's area over its ratio's largest",
         [&](const SubjectTally& t) { return t.cases > 0 ? t.areaShare / t.cases : 0.0; });
    std::printf("(%d labelled photographs, %d cases that fit, %d with a preferred box)\n", photos,
                byMethod[1].cases, byMethod[1].preferredCases);
    return 0;
}
