#include "score_model_fitting.h"

#include <lapacke.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>

#include "analysis/image_analysis.h"
#include "source/PoolGrid.h"
#include "source/RGB8Image.h"
#include "source/RandomCropGenerator.h"
#include "source/ScoreModel.h"

namespace smartCrop::fitting {

namespace {

constexpr int kN = kPooledFeatureCount;
using Vector = std::vector<double>;

const double kAspects[] = {1.0, 4.0 / 3, 3.0 / 4, 3.0 / 2, 2.0 / 3, 16.0 / 9, 9.0 / 16};
const double kScales[] = {1.0, 0.9, 0.8, 0.7, 0.6, 0.5};

std::unique_ptr<ImageAnalysis> analyse(int width, int height, const uint8_t* pixels) {
    const uint64_t offsets[4] = {0, 1, 2, 3};
    std::unique_ptr<CRGB8Image, void (*)(CRGB8Image*)> image(
        CRGB8Image::Create(height, width, 4, offsets, pixels), [](CRGB8Image* p) { p->Release(); });
    if (!image) throw std::bad_alloc();
    auto analysis = std::make_unique<ImageAnalysis>();
    analyze_image(*image, SmartCropParams(), {}, *analysis);
    if (!analysis->has_maps()) throw std::runtime_error("a photograph is too thin to analyse");
    return analysis;
}

Vector whole_frame(const ImageAnalysis& a) {
    float x[kN];
    pool_model_features(a.saliencyIntegral, a.edgeIntegral,
                        WorkRect{0, 0, a.workHeight - 1, a.workWidth - 1}, x);
    return Vector(x, x + kN);
}

// Calls `visit` with the pooled features of every candidate the library
// generates for the photograph.
template <class Visit>
void for_each_candidate(const ImageAnalysis& a, Visit visit) {
    std::vector<RatioEntry> aspects, scales;
    for (double r : kAspects) aspects.push_back({r, true});
    for (double r : kScales) scales.push_back({r, true});
    RandomCropGenerator generator(a.sourceWidth, a.sourceHeight, aspects, scales, 25);
    float x[kN];
    for (const CropRow& row : generator.BuildAll()) {
        for (const CropCell& cell : row) {
            for (const CropRect& crop : cell) {
                pool_model_features(a.saliencyIntegral, a.edgeIntegral, a.work_rect(crop), x);
                visit(x);
            }
        }
    }
}

// A random sub-framing of the photograph, cut out as a photograph of its own.
Photo sub_framing(const Photo& photo, std::mt19937& rng) {
    std::uniform_real_distribution<double> scaleDist(0.5, 0.9);
    std::uniform_int_distribution<int> aspectDist(0, 6);
    const double r = kAspects[aspectDist(rng)], x = scaleDist(rng);
    const double W = photo.width, H = photo.height;
    int w, h;
    if (r > W / H) {
        w = static_cast<int>(x * W + 0.5);
        h = static_cast<int>(w / r + 0.5);
    } else {
        h = static_cast<int>(x * H + 0.5);
        w = static_cast<int>(h * r + 0.5);
    }
    w = std::max(1, std::min(w, photo.width));
    h = std::max(1, std::min(h, photo.height));
    const int left = std::uniform_int_distribution<int>(0, photo.width - w)(rng);
    const int top = std::uniform_int_distribution<int>(0, photo.height - h)(rng);
    Photo out;
    out.width = w;
    out.height = h;
    out.pixels.resize(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y) {
        const uint8_t* src =
            &photo.pixels[((static_cast<size_t>(top) + y) * photo.width + left) * 4];
        std::copy(src, src + static_cast<size_t>(w) * 4,
                  &out.pixels[static_cast<size_t>(y) * w * 4]);
    }
    return out;
}

struct Framings {
    Vector positive;
    std::vector<Vector> negatives;
};

double dot(const Vector& a, const Vector& b) {
    double s = 0;
    for (int i = 0; i < kN; ++i) s += a[i] * b[i];
    return s;
}

// Minimises sum log(1 + exp(-w.d)) + lambda/2 |w|^2 over the differences d
// by Newton's method: a convex problem of 304 unknowns.
Vector fit_pairwise(const std::vector<Vector>& diffs, double lambda) {
    Vector w(kN, 0.0);
    for (int iteration = 0; iteration < 50; ++iteration) {
        Vector g(kN), H(static_cast<size_t>(kN) * kN, 0.0);
        for (int i = 0; i < kN; ++i) {
            g[i] = lambda * w[i];
            H[static_cast<size_t>(i) * kN + i] = lambda;
        }
        for (const Vector& d : diffs) {
            const double p = 1.0 / (1.0 + std::exp(dot(w, d)));  // sigma(-w.d)
            const double c = p * (1.0 - p);
            for (int i = 0; i < kN; ++i) {
                g[i] -= p * d[i];
                const double cdi = c * d[i];
                for (int j = 0; j <= i; ++j) H[static_cast<size_t>(i) * kN + j] += cdi * d[j];
            }
        }
        // Lower triangle filled, row-major: that is the upper one column-major.
        if (LAPACKE_dposv(LAPACK_ROW_MAJOR, 'L', kN, 1, H.data(), kN, g.data(), 1) != 0) break;
        double step = 0;
        for (int i = 0; i < kN; ++i) {
            w[i] -= g[i];
            step = std::max(step, std::fabs(g[i]));
        }
        if (step < 1e-9) break;
    }
    return w;
}

double pair_share(const std::vector<Framings>& photos, const std::vector<int>& which,
                  const std::function<double(const Vector&)>& score) {
    double right = 0;
    int pairs = 0;
    for (int p : which) {
        const double pos = score(photos[p].positive);
        for (const Vector& neg : photos[p].negatives) {
            const double n = score(neg);
            right += pos > n ? 1.0 : pos == n ? 0.5 : 0.0;
            ++pairs;
        }
    }
    return pairs > 0 ? right / pairs : 0.0;
}

// The features of the mirror image: within each grid, column j becomes
// column L - 1 - j. A framing stays as good when mirrored.
Vector mirrored(const Vector& x) {
    Vector m(kN);
    int offset = 0;
    for (int L : {4, 8, 4, 8, 12}) {
        for (int i = 0; i < L; ++i)
            for (int j = 0; j < L; ++j) m[offset + i * L + j] = x[offset + i * L + (L - 1 - j)];
        offset += L * L;
    }
    return m;
}

// Positive minus negative for every pair, and the same for the mirror images.
std::vector<Vector> differences(const std::vector<Framings>& photos,
                                const std::vector<int>& which) {
    std::vector<Vector> diffs;
    for (int p : which) {
        for (const Vector& neg : photos[p].negatives) {
            Vector d(kN);
            for (int i = 0; i < kN; ++i) d[i] = photos[p].positive[i] - neg[i];
            diffs.push_back(mirrored(d));
            diffs.push_back(std::move(d));
        }
    }
    return diffs;
}

}  // namespace

Tables fit(const std::vector<Photo>& photos, const Options& options, Report& report) {
    std::vector<int> training, heldOut;
    for (int i = 0; i < static_cast<int>(photos.size()); ++i) {
        (i % options.holdoutEvery == options.holdoutEvery - 1 ? heldOut : training).push_back(i);
    }
    if (training.empty()) throw std::runtime_error("no training photograph");
    report.trainingPhotos = static_cast<int>(training.size());
    report.heldOutPhotos = static_cast<int>(heldOut.size());

    // Standardisation over the library's own candidates of the training photographs.
    Vector sum(kN, 0.0), sumSq(kN, 0.0);
    long count = 0;
    for (int p : training) {
        const auto a = analyse(photos[p].width, photos[p].height, photos[p].pixels.data());
        for_each_candidate(*a, [&](const float* x) {
            for (int i = 0; i < kN; ++i) {
                sum[i] += x[i];
                sumSq[i] += static_cast<double>(x[i]) * x[i];
            }
            ++count;
        });
    }
    report.candidates = static_cast<int>(count);
    // Averaged with their mirror images, so that the mirror of a
    // standardised vector is the standardised mirror (see `differences`).
    const Vector sumMirror = mirrored(sum), sumSqMirror = mirrored(sumSq);
    Tables t;
    t.mean.resize(kN);
    t.scale.resize(kN);
    for (int i = 0; i < kN; ++i) {
        const double mean = (sum[i] + sumMirror[i]) / (2.0 * count);
        const double var = std::max(0.0, (sumSq[i] + sumSqMirror[i]) / (2.0 * count) - mean * mean);
        t.mean[i] = static_cast<float>(mean);
        t.scale[i] = var > 1e-12 ? static_cast<float>(1.0 / std::sqrt(var)) : 1.0f;
    }
    auto standardise = [&](Vector x) {
        for (int i = 0; i < kN; ++i) x[i] = (x[i] - t.mean[i]) * t.scale[i];
        return x;
    };

    // Whole-frame features of each photograph and of its sub-framings, each
    // analysed as a photograph of its own.
    std::mt19937 rng(options.seed);
    std::vector<Framings> framings(photos.size());
    std::vector<Framings> raw(photos.size());
    for (size_t p = 0; p < photos.size(); ++p) {
        const Photo& photo = photos[p];
        raw[p].positive = whole_frame(*analyse(photo.width, photo.height, photo.pixels.data()));
        for (int k = 0; k < options.negativesPerPhoto; ++k) {
            const Photo sub = sub_framing(photo, rng);
            raw[p].negatives.push_back(
                whole_frame(*analyse(sub.width, sub.height, sub.pixels.data())));
        }
        framings[p].positive = standardise(raw[p].positive);
        for (const Vector& n : raw[p].negatives) framings[p].negatives.push_back(standardise(n));
    }

    // The regularisation by cross-validation over groups of training photographs.
    const int folds = std::min<int>(4, static_cast<int>(training.size()));
    double bestShare = -1;
    for (double lambda : options.lambdas) {
        double share = 0;
        for (int f = 0; f < folds; ++f) {
            std::vector<int> fit, check;
            for (size_t i = 0; i < training.size(); ++i) {
                (static_cast<int>(i) % folds == f ? check : fit).push_back(training[i]);
            }
            if (fit.empty() || check.empty()) continue;
            const Vector w = fit_pairwise(differences(framings, fit), lambda);
            share += pair_share(framings, check, [&](const Vector& x) { return dot(w, x); });
        }
        if (share > bestShare) {
            bestShare = share;
            report.lambda = lambda;
        }
    }
    const Vector w = fit_pairwise(differences(framings, training), report.lambda);
    t.weight.resize(kN);
    for (int i = 0; i < kN; ++i) t.weight[i] = static_cast<float>(w[i]);
    report.trainingAccuracy =
        pair_share(framings, training, [&](const Vector& x) { return dot(w, x); });

    // Bias: the median candidate sits at z = 0, in the middle of the clamp.
    std::vector<float> z;
    for (int p : training) {
        const auto a = analyse(photos[p].width, photos[p].height, photos[p].pixels.data());
        for_each_candidate(*a, [&](const float* x) {
            double s = 0;
            for (int i = 0; i < kN; ++i) s += (x[i] - t.mean[i]) * t.scale[i] * t.weight[i];
            z.push_back(static_cast<float>(s));
        });
    }
    std::sort(z.begin(), z.end());
    t.bias = z[(z.size() - 1) / 2];
    auto at = [&](double q) { return z[static_cast<size_t>(q * (z.size() - 1))] - t.bias; };
    report.zP05 = at(0.05);
    report.zP50 = at(0.5);
    report.zP95 = at(0.95);
    const long inside =
        std::count_if(z.begin(), z.end(), [&](float v) { return std::fabs(v - t.bias) < 3.0f; });
    report.insideClamp = static_cast<double>(inside) / z.size();

    // Held-out photographs: fitted against untrained (all weights zero: every
    // pair ties) and a centre-preferring baseline (saliency in the central
    // 2 by 2 of the 4 by 4 grid against the 12 outer cells, raw features).
    report.fitted = pair_share(framings, heldOut, [&](const Vector& x) { return dot(w, x); });
    report.untrained = pair_share(framings, heldOut, [](const Vector&) { return 0.0; });
    std::vector<Framings>& rawRef = raw;
    report.centreBaseline = pair_share(rawRef, heldOut, [](const Vector& x) {
        double centre = 0, outer = 0;
        for (int i = 0; i < 16; ++i) {
            const bool inner = (i / 4 == 1 || i / 4 == 2) && (i % 4 == 1 || i % 4 == 2);
            (inner ? centre : outer) += x[i];
        }
        return centre / 4 - outer / 12;
    });
    return t;
}

std::string source_file(const Tables& t, const std::string& origin) {
    std::ostringstream out;
    out << "// " << origin << "\n// Do not edit: regenerate with tools/fit_score_model.\n";
    out << "#include \"source/ScoreModel.h\"\n\nnamespace smartCrop {\n";
    auto table = [&](const char* name, const std::vector<float>& values) {
        // The length as written: a build whose pooled grids give another fails.
        out << "\nconst float " << name << "[" << values.size() << "] = {\n";
        char text[32];
        for (size_t i = 0; i < values.size(); ++i) {
            std::snprintf(text, sizeof text, "%.9gf", values[i]);
            out << (i % 6 == 0 ? "    " : " ") << text << ",";
            if (i % 6 == 5 || i + 1 == values.size()) out << "\n";
        }
        out << "};\n";
    };
    table("pooledMean", t.mean);
    table("pooledScale", t.scale);
    table("pooledWeight", t.weight);
    char bias[32];
    std::snprintf(bias, sizeof bias, "%.9gf", t.bias);
    out << "\nconst float modelBias = " << bias << ";\n\n}  // namespace smartCrop\n";
    return out.str();
}

}  // namespace smartCrop::fitting
