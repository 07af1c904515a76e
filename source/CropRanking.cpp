// From scored candidates to a short, diverse, ranked list.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "kernels/library_contract.h"
#include "kernels/rect_geometry.h"
#include "source/CropAnalyzer.h"

namespace smartCrop {

namespace {

bool applies(const RectOfInterest& r, bool useFaces) {
    return r.active && (!r.isFace || useFaces);
}

// Descending, with NaN after every number: a strict weak order even for the
// not-a-number scores a single candidate gets.
bool higher(double a, double b) {
    if (std::isnan(a)) return false;
    if (std::isnan(b)) return true;
    return a > b;
}

}  // namespace

void CropAnalyzer::score_candidates(bool useFaces, const CellRange& cells) {
    std::vector<RectOfInterest> soft;
    for (const RectOfInterest& r : roiList) {
        if (!applies(r, useFaces) || (r.kind != eRoiWanted && r.kind != eRoiUnwanted)) continue;
        soft.push_back(r);
        if (r.isFace && useFaces) {
            // Face rectangles were enlarged around the face: this copy is the
            // face proper, without the lower 30% and 15% on either side.
            RectOfInterest face = r;
            face.bottom = r.bottom - static_cast<int32_t>((r.bottom - r.top) * 0.3);
            face.left = r.left + static_cast<int32_t>((r.right - r.left) * 0.15);
            face.right = r.right + static_cast<int32_t>((r.right - face.left) * -0.15);
            soft.push_back(face);
        }
    }
    RectOfInterest bounds;
    if (!soft.empty()) {
        bounds = soft[0];
        for (const RectOfInterest& r : soft) {
            bounds.left = std::min(bounds.left, r.left);
            bounds.top = std::min(bounds.top, r.top);
            bounds.right = std::max(bounds.right, r.right);
            bounds.bottom = std::max(bounds.bottom, r.bottom);
        }
    }
    std::vector<uint32_t> order;
    for (CropCell* cell : cells) {
        if (std::any_of(cell->begin(), cell->end(),
                        [](const CropRect& r) { return !r.analysed; })) {
            // Row by row: neighbours then read the same table rows a few
            // columns apart, mostly from cache; the cells come column by column.
            order.resize(cell->size());
            for (uint32_t i = 0; i < order.size(); ++i) order[i] = i;
            std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
                return (*cell)[a].top < (*cell)[b].top;
            });
            for (uint32_t i : order) compute_features((*cell)[i]);
        }
        for (CropRect& record : *cell)
            record.roiScore = soft.empty() ? 1.0 : roi_score(record, soft, bounds);
    }
}

std::vector<CropRect>& CropAnalyzer::select_suggestions(uint32_t count, const ConstCellRange& cells,
                                                        bool useFaces, uint32_t mode,
                                                        std::array<double, 6> weights) {
    std::vector<RectOfInterest> hard;
    for (const RectOfInterest& r : roiList) {
        if (applies(r, useFaces) && (r.kind == eRoiRequired || r.kind == eRoiForbidden))
            hard.push_back(r);
    }
    auto honours = [&](const CropRect& record) {
        for (const RectOfInterest& k : hard) {
            if (!contract::honours_hard_rect(record, k, k.kind == eRoiRequired)) return false;
        }
        return true;
    };
    std::vector<const CropRect*> kept;
    for (const CropCell* cell : cells) {
        for (const CropRect& record : *cell) {
            if (honours(record)) kept.push_back(&record);
        }
    }
    // Modes 1 to 3 rank on one feature (with the rectangles of interest).
    static const int kCleared[4][4] = {{}, {1, 2, 3, 4}, {0, 2, 3, 4}, {0, 1, 3, 4}};
    if (mode >= 1 && mode <= 3) {
        for (int i : kCleared[mode]) weights[i] = 0.0;
    }
    return rank_candidates(count, kept, weights);
}

void log_rank(std::vector<std::pair<float, uint32_t>>& pairs, std::vector<float>& out) {
    std::sort(pairs.begin(), pairs.end(),
              [](const auto& a, const auto& b) { return higher(b.first, a.first); });
    const double logN = std::log(static_cast<double>(static_cast<float>(pairs.size())));
    for (size_t k = 0; k < pairs.size(); ++k) {
        out[pairs[k].second] = static_cast<float>(std::log(static_cast<double>(k + 1)) / logN);
    }
}

std::vector<CropRect>& CropAnalyzer::rank_candidates(uint32_t count,
                                                     const std::vector<const CropRect*>& F,
                                                     const std::array<double, 6>& weights) {
    const size_t n = F.size();
    // A feature's ranks depend only on its values in candidate order: a
    // repeated query over the same candidates reuses them (the values are
    // compared bit for bit, so the ranks are the ones a sort would give).
    auto ranks = [&](double CropRect::*field, RankMemo& memo) -> const std::vector<float>& {
        std::vector<float> values(n);
        for (size_t i = 0; i < n; ++i) values[i] = static_cast<float>(F[i]->*field);
        if (values.size() == memo.values.size() &&
            (n == 0 || std::memcmp(values.data(), memo.values.data(), n * sizeof(float)) == 0))
            return memo.ranks;
        std::vector<std::pair<float, uint32_t>> pairs(n);
        for (size_t i = 0; i < n; ++i) pairs[i] = {values[i], static_cast<uint32_t>(i)};
        memo.ranks.assign(n, 0.0f);
        log_rank(pairs, memo.ranks);
        memo.values = std::move(values);
        return memo.ranks;
    };
    static const std::vector<float> kNone;
    const std::vector<float>& R0 = ranks(&CropRect::aestheticScore, rankMemos[0]);
    const std::vector<float>& R1 = ranks(&CropRect::coverageScore, rankMemos[1]);
    const std::vector<float>& R2 = ranks(&CropRect::borderScore, rankMemos[2]);
    const std::vector<float>& R3 =
        weights[3] > 0 ? ranks(&CropRect::peakShare, rankMemos[3]) : kNone;
    const std::vector<float>& R4 =
        weights[4] > 0 ? ranks(&CropRect::centreShare, rankMemos[4]) : kNone;

    std::vector<std::pair<double, uint32_t>> order(n);
    for (size_t i = 0; i < n; ++i) {
        double s = R0[i] * weights[0] + R1[i] * weights[1] + R2[i] * weights[2];
        if (weights[3] > 0) s += R3[i] * weights[3];
        if (weights[4] > 0) s += R4[i] * weights[4];
        s = (s + (F[i]->wellCovered ? 1.0 : 0.0)) * 0.5;
        const double roi = static_cast<float>(F[i]->roiScore);
        s = (roi * weights[5] + s) / (weights[5] + 1.0);
        order[i] = {s, static_cast<uint32_t>(i)};
    }
    // A repeated query over the same candidates blends the same scores: the
    // sort is skipped when they are equal bit for bit, and its order reused.
    const bool same =
        order.size() == orderMemo.scores.size() &&
        std::equal(
            order.begin(), order.end(), orderMemo.scores.begin(), [](const auto& a, const auto& b) {
                return a.second == b.second && std::memcmp(&a.first, &b.first, sizeof(double)) == 0;
            });
    if (!same) {
        orderMemo.scores = order;
        std::sort(order.begin(), order.end(),
                  [](const auto& a, const auto& b) { return higher(a.first, b.first); });
        orderMemo.sorted = std::move(order);
    }
    return pick_diverse(F, orderMemo.sorted, count, 0.83f, 0.2f, 1.0f, 0);
}

std::vector<CropRect>& CropAnalyzer::pick_diverse(
    const std::vector<const CropRect*>& F, const std::vector<std::pair<double, uint32_t>>& order,
    uint32_t count, float overlapLimit, float keepFraction, float reachFraction, uint32_t mode) {
    const size_t n = F.size();
    const float kept = static_cast<float>(n) * keepFraction;
    const size_t keep = std::min(kept > 200.0f ? static_cast<size_t>(kept) : n, order.size());
    const float reach = std::max(1.0f, static_cast<float>(keep) * reachFraction);

    // Candidates are named by their place in `order`; a record is read
    // through it and copied only when it is picked.
    auto rect = [&](size_t k) -> const CropRect& { return *F[order[k].second]; };
    auto picked = [&](size_t k) {
        CropRect r = rect(k);
        r.score = order[k].first;
        return r;
    };
    suggestions.clear();
    if (keep < count) {
        for (size_t k = 0; k < keep; ++k) suggestions.push_back(picked(k));
        return suggestions;
    }

    // Only the first `count` clusters can be visited before the list is
    // full (every seed is taken before any second member), so forming more
    // would not change the answer.
    std::vector<size_t> T(keep);
    for (size_t k = 0; k < keep; ++k) T[k] = k;
    std::vector<std::vector<size_t>> clusters;
    while (!T.empty() && clusters.size() < count) {
        std::vector<size_t> cluster{T[0]}, rest;
        for (size_t i = 1; i < T.size(); ++i) {
            if (overlap_iou(rect(T[0]), rect(T[i])) > overlapLimit &&
                static_cast<float>(i) < reach) {
                cluster.push_back(T[i]);
            } else {
                rest.push_back(T[i]);
            }
        }
        clusters.push_back(std::move(cluster));
        T = std::move(rest);
    }

    auto field = [mode](const CropRect& r) {
        switch (mode) {
            case 1:
                return r.aestheticScore;
            case 2:
                return r.coverageScore;
            case 3:
                return r.borderScore;
            default:
                return r.score;
        }
    };
    const size_t N = clusters.size();
    size_t emptyVisits = 0;
    for (size_t t = 0; N > 0 && emptyVisits < N && suggestions.size() < count; ++t) {
        std::vector<size_t>& cluster = clusters[t % N];
        if (cluster.empty()) {
            ++emptyVisits;
            continue;
        }
        size_t pick = 0;
        if (mode >= 1 && mode <= 3) {
            for (size_t i = 1; i < cluster.size(); ++i) {
                if (field(rect(cluster[i])) > field(rect(cluster[pick]))) pick = i;
            }
        }
        suggestions.push_back(picked(cluster[pick]));
        cluster.erase(cluster.begin() + static_cast<std::ptrdiff_t>(pick));
        emptyVisits = 0;
    }
    std::sort(suggestions.begin(), suggestions.end(),
              [&](const CropRect& a, const CropRect& b) { return higher(field(b), field(a)); });
    std::reverse(suggestions.begin(), suggestions.end());
    return suggestions;
}

}  // namespace smartCrop
