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
#include "score_model_design.h"
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

// What a weight may be: fixed at a value, or free within [lo, hi].
struct WeightBounds {
    Vector lo = Vector(kN, -HUGE_VAL), hi = Vector(kN, HUGE_VAL);
    std::vector<bool> fixed = std::vector<bool>(kN, false);
    Vector value = Vector(kN, 0.0);
};

WeightBounds design_bounds() {
    WeightBounds b;
    for (int i = 0; i < kN; ++i) {
        b.lo[i] = std::max(block_of(i).weight.lo, kOthersFloor);
        b.hi[i] = block_of(i).weight.hi;
    }
    for (int i : kStrongest) {
        b.lo[i] = block_of(i).weight.lo;
        b.hi[i] = kStrongestCap;
    }
    for (const GivenRow& r : kGivenRows) {
        b.fixed[r.index] = true;
        b.value[r.index] = r.weight;
    }
    return b;
}

double softplus(double m) {  // log(1 + exp(-m)), without overflow
    return m < 0 ? -m + std::log1p(std::exp(m)) : std::log1p(std::exp(-m));
}

// Minimises sum log(1 + exp(-w.d)) + lambda/2 |w|^2 over the differences d,
// the penalty on the free weights only, within the bounds: a convex problem
// of 304 unknowns, solved by Newton steps on the weights not held at a
// bound, each projected back into the bounds with a backtracking search.
Vector fit_pairwise(const std::vector<Vector>& diffs, double lambda, const WeightBounds& b) {
    Vector w(kN);
    for (int i = 0; i < kN; ++i) w[i] = b.fixed[i] ? b.value[i] : std::clamp(0.0, b.lo[i], b.hi[i]);
    auto objective = [&](const Vector& v) {
        double f = 0;
        for (const Vector& d : diffs) f += softplus(dot(v, d));
        for (int i = 0; i < kN; ++i)
            if (!b.fixed[i]) f += 0.5 * lambda * v[i] * v[i];
        return f;
    };
    for (int iteration = 0; iteration < 100; ++iteration) {
        Vector g(kN, 0.0), H(static_cast<size_t>(kN) * kN, 0.0);
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
        // The weights that may move: not fixed, and not pressed against a bound.
        std::vector<int> F;
        for (int i = 0; i < kN; ++i) {
            const bool held = (w[i] <= b.lo[i] && g[i] > 0) || (w[i] >= b.hi[i] && g[i] < 0);
            if (!b.fixed[i] && !held) F.push_back(i);
        }
        const int n = static_cast<int>(F.size());
        if (n == 0) break;
        Vector h(static_cast<size_t>(n) * n), step(n);
        for (int r = 0; r < n; ++r) {
            step[r] = g[F[r]];
            for (int c = 0; c <= r; ++c)
                h[static_cast<size_t>(r) * n + c] = H[static_cast<size_t>(F[r]) * kN + F[c]];
        }
        // Lower triangle filled, row-major: that is the upper one column-major.
        if (LAPACKE_dposv(LAPACK_ROW_MAJOR, 'L', n, 1, h.data(), n, step.data(), 1) != 0) break;
        const double f0 = objective(w);
        Vector trial = w;
        double change = 0;
        for (double t = 1.0; t > 1e-6; t *= 0.5) {
            double decrease = 0;
            change = 0;
            for (int r = 0; r < n; ++r) {
                const int i = F[r];
                trial[i] = std::clamp(w[i] - t * step[r], b.lo[i], b.hi[i]);
                decrease += g[i] * (trial[i] - w[i]);
                change = std::max(change, std::fabs(trial[i] - w[i]));
            }
            if (objective(trial) <= f0 + 1e-4 * decrease) break;
        }
        w = trial;
        if (change < 1e-10) break;
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

// Copies of the framings standardised by the tables' means and scales.
std::vector<Framings> standardised(const std::vector<Framings>& raw, const Tables& t) {
    auto one = [&](Vector x) {
        for (int i = 0; i < kN; ++i) x[i] = (x[i] - t.mean[i]) * t.scale[i];
        return x;
    };
    std::vector<Framings> out(raw.size());
    for (size_t p = 0; p < raw.size(); ++p) {
        out[p].positive = one(raw[p].positive);
        for (const Vector& n : raw[p].negatives) out[p].negatives.push_back(one(n));
    }
    return out;
}

// The regularisation by cross-validation over groups of training
// photographs, then the weights from all of them.
Vector fit_weights(const std::vector<Framings>& framings, const std::vector<int>& training,
                   const std::vector<double>& lambdas, const WeightBounds& bounds, double& chosen) {
    const int folds = std::min<int>(4, static_cast<int>(training.size()));
    double bestShare = -1;
    for (double lambda : lambdas) {
        double share = 0;
        for (int f = 0; f < folds; ++f) {
            std::vector<int> fit, check;
            for (size_t i = 0; i < training.size(); ++i) {
                (static_cast<int>(i) % folds == f ? check : fit).push_back(training[i]);
            }
            if (fit.empty() || check.empty()) continue;
            const Vector w = fit_pairwise(differences(framings, fit), lambda, bounds);
            share += pair_share(framings, check, [&](const Vector& x) { return dot(w, x); });
        }
        if (share > bestShare) {
            bestShare = share;
            chosen = lambda;
        }
    }
    return fit_pairwise(differences(framings, training), chosen, bounds);
}

// Moves the means that are not given, each within its block's range, so
// that every candidate's z falls by `wanted` (as near as the ranges allow)
// with the least change: mean i moves by t * scale_i * weight_i, clamped,
// with t found by bisection (the fall grows with t). Returns the fall.
double centre_by_means(Tables& t, double wanted) {
    std::vector<bool> given(kN, false);
    for (const GivenRow& r : kGivenRows) given[r.index] = true;
    const std::vector<float> start = t.mean;
    auto fall = [&](double step, bool apply) {
        double total = 0;
        for (int i = 0; i < kN; ++i) {
            if (given[i]) continue;
            const double c = static_cast<double>(t.scale[i]) * t.weight[i];
            const Range& r = block_of(i).mean;
            const float m = static_cast<float>(std::clamp(start[i] + step * c, r.lo, r.hi));
            total += c * (static_cast<double>(m) - start[i]);
            if (apply) t.mean[i] = m;
        }
        return total;
    };
    double lo = -1.0, hi = 1.0;  // a step of 1 moves a mean far past any range
    for (int k = 0; k < 100; ++k) {
        const double mid = 0.5 * (lo + hi);
        (fall(mid, false) < wanted ? lo : hi) = mid;
    }
    return fall(0.5 * (lo + hi), true);
}

}  // namespace

std::vector<double> candidate_block_means(const Photo& photo) {
    Vector sums(5, 0.0);
    long count = 0;
    for_each_candidate(*analyse(photo.width, photo.height, photo.pixels.data()),
                       [&](const float* x) {
                           for (int i = 0; i < kN; ++i) sums[&block_of(i) - kDesignBlocks] += x[i];
                           ++count;
                       });
    for (int b = 0; b < 5; ++b) {
        const int cells = kDesignBlocks[b].last - kDesignBlocks[b].first + 1;
        sums[b] /= static_cast<double>(count) * cells;
    }
    return sums;
}

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
    for (int i = 0; i < kN; ++i) {
        const Block& b = block_of(i);
        report.blockMeans[&b - kDesignBlocks] += sum[i] / count / (b.last - b.first + 1);
    }
    // Averaged with their mirror images, so that the mirror of a
    // standardised vector is the standardised mirror (see `differences`).
    // The design's tables take the data's values into its ranges and its
    // given rows as they stand.
    const Vector sumMirror = mirrored(sum), sumSqMirror = mirrored(sumSq);
    Tables free, design;
    for (Tables* t : {&free, &design}) {
        t->mean.resize(kN);
        t->scale.resize(kN);
        t->weight.resize(kN);
    }
    for (int i = 0; i < kN; ++i) {
        const double mean = (sum[i] + sumMirror[i]) / (2.0 * count);
        const double var = std::max(0.0, (sumSq[i] + sumSqMirror[i]) / (2.0 * count) - mean * mean);
        const double scale = var > 1e-12 ? 1.0 / std::sqrt(var) : 1.0;
        free.mean[i] = static_cast<float>(mean);
        free.scale[i] = static_cast<float>(scale);
        const Block& b = block_of(i);
        design.mean[i] = static_cast<float>(std::clamp(mean, b.mean.lo, b.mean.hi));
        design.scale[i] = static_cast<float>(std::clamp(scale, b.scale.lo, b.scale.hi));
    }
    for (const GivenRow& r : kGivenRows) {
        design.mean[r.index] = r.mean;
        design.scale[r.index] = r.scale;
    }

    // Whole-frame features of each photograph and of its sub-framings, each
    // analysed as a photograph of its own.
    std::mt19937 rng(options.seed);
    std::vector<Framings> raw(photos.size());
    for (size_t p = 0; p < photos.size(); ++p) {
        const Photo& photo = photos[p];
        raw[p].positive = whole_frame(*analyse(photo.width, photo.height, photo.pixels.data()));
        for (int k = 0; k < options.negativesPerPhoto; ++k) {
            const Photo sub = sub_framing(photo, rng);
            raw[p].negatives.push_back(
                whole_frame(*analyse(sub.width, sub.height, sub.pixels.data())));
        }
    }

    Tables& chosen = options.design ? design : free;
    Tables& other = options.design ? free : design;
    Vector weights[2];
    std::vector<Framings> framings[2];
    double lambdas[2] = {};
    const WeightBounds bounds[2] = {options.design ? design_bounds() : WeightBounds(),
                                    options.design ? WeightBounds() : design_bounds()};
    for (int k = 0; k < (options.compare ? 2 : 1); ++k) {
        framings[k] = standardised(raw, k == 0 ? chosen : other);
        weights[k] = fit_weights(framings[k], training, options.lambdas, bounds[k], lambdas[k]);
        Tables& t = k == 0 ? chosen : other;
        for (int i = 0; i < kN; ++i) t.weight[i] = static_cast<float>(weights[k][i]);
    }
    report.lambda = lambdas[0];
    auto by = [](const Vector& w) { return [&w](const Vector& x) { return dot(w, x); }; };
    report.trainingAccuracy = pair_share(framings[0], training, by(weights[0]));
    report.fitted = pair_share(framings[0], heldOut, by(weights[0]));
    if (options.compare) report.other = pair_share(framings[1], heldOut, by(weights[1]));

    // The median candidate sits at z = 0, in the middle of the clamp: in a
    // free fit by the bias; with the design's bias by the means, moved
    // together as little as will do it within their ranges.
    std::vector<float> z;
    for (int p : training) {
        const auto a = analyse(photos[p].width, photos[p].height, photos[p].pixels.data());
        for_each_candidate(*a, [&](const float* x) {
            double s = 0;
            for (int i = 0; i < kN; ++i)
                s += (x[i] - chosen.mean[i]) * chosen.scale[i] * chosen.weight[i];
            z.push_back(static_cast<float>(s));
        });
    }
    std::sort(z.begin(), z.end());
    if (options.design) {
        chosen.bias = kDesignBias;
        const double moved = centre_by_means(chosen, z[(z.size() - 1) / 2] - kDesignBias);
        for (float& v : z) v = static_cast<float>(v - moved);
    } else {
        chosen.bias = z[(z.size() - 1) / 2];
    }
    auto at = [&](double q) { return z[static_cast<size_t>(q * (z.size() - 1))] - chosen.bias; };
    report.zP05 = at(0.05);
    report.zP50 = at(0.5);
    report.zP95 = at(0.95);
    const long inside = std::count_if(z.begin(), z.end(),
                                      [&](float v) { return std::fabs(v - chosen.bias) < 3.0f; });
    report.insideClamp = static_cast<double>(inside) / z.size();

    // Held-out photographs against untrained (all weights zero: every pair
    // ties) and a centre-preferring baseline (saliency in the central 2 by 2
    // of the 4 by 4 grid against the 12 outer cells, raw features).
    report.untrained = pair_share(framings[0], heldOut, [](const Vector&) { return 0.0; });
    report.centreBaseline = pair_share(raw, heldOut, [](const Vector& x) {
        double centre = 0, outer = 0;
        for (int i = 0; i < 16; ++i) {
            const bool inner = (i / 4 == 1 || i / 4 == 2) && (i % 4 == 1 || i % 4 == 2);
            (inner ? centre : outer) += x[i];
        }
        return centre / 4 - outer / 12;
    });
    return chosen;
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
