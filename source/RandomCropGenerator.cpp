#include "source/RandomCropGenerator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "source/WeftyException.h"

namespace smartCrop {

namespace {

// floor(v + 0.5) as an unsigned size. Values a host can reach through odd
// ratios (negative, NaN, beyond 2^64) saturate instead of being undefined.
uint64_t Nearest(double v) {
    const double r = std::floor(v + 0.5);
    if (!(r > 0.0)) return 0;
    if (r >= 18446744073709551616.0) return std::numeric_limits<uint64_t>::max();
    return static_cast<uint64_t>(r);
}

void SetOrAppend(std::vector<RatioEntry>& list, double ratio, bool enabled, double tolerance) {
    for (RatioEntry& entry : list) {
        if (std::fabs(entry.ratio - ratio) < tolerance) {
            entry.enabled = enabled;
            return;
        }
    }
    list.push_back(RatioEntry{ratio, enabled});
}

}  // namespace

RandomCropGenerator::RandomCropGenerator(uint64_t width, uint64_t height,
                                         std::vector<RatioEntry> aspectRatios,
                                         std::vector<RatioEntry> scaleRatios, uint32_t gridSteps)
    : width(width),
      height(height),
      aspectRatios(std::move(aspectRatios)),
      scaleRatios(std::move(scaleRatios)),
      matchTolerance(0.001 / static_cast<double>(std::max(width, height))),
      // One position per axis at least: zero would make the proportional share wrap.
      gridSteps(std::max<uint32_t>(gridSteps, 1)) {}

bool RandomCropGenerator::Same(double a, double b) const {
    return std::fabs(a - b) < matchTolerance;
}

void RandomCropGenerator::SetAspectRatio(double ratio, bool enabled) {
    SetOrAppend(aspectRatios, ratio, enabled, matchTolerance);
}

void RandomCropGenerator::SetScaleRatio(double ratio, bool enabled) {
    SetOrAppend(scaleRatios, ratio, enabled, matchTolerance);
}

CropRow& RandomCropGenerator::Row(uint32_t aspectIndex) {
    if (aspectIndex >= aspectRatios.size()) {
        throw std::out_of_range("RandomCropGenerator: aspect index out of range");
    }
    // Rows come into being when first needed.
    if (aspectIndex >= cropTable.size()) cropTable.resize(aspectIndex + 1);
    return cropTable[aspectIndex];
}

const CropCell& RandomCropGenerator::BuildCell(uint32_t aspectIndex, uint32_t scaleIndex) {
    CropRow& row = Row(aspectIndex);
    if (scaleIndex >= scaleRatios.size()) {
        throw std::out_of_range("RandomCropGenerator: scale index out of range");
    }
    if (scaleIndex < row.size() && !row[scaleIndex].empty()) return row[scaleIndex];
    if (scaleIndex >= row.size()) row.resize(scaleIndex + 1);

    const double W = static_cast<double>(width);
    const double H = static_cast<double>(height);
    const double r = aspectRatios[aspectIndex].ratio;
    const double x = scaleRatios[scaleIndex].ratio;

    uint64_t cropW = 0;
    uint64_t cropH = 0;
    if (r > W / H) {
        cropW = Nearest(x * W);
        cropH = Nearest(static_cast<double>(cropW) / r);
    } else {
        cropH = Nearest(x * H);
        cropW = Nearest(static_cast<double>(cropH) * r);
    }
    if (cropW > width || cropH > height) throw "RandomCropGenerator: error\n";
    // A crop that rounds to nothing has no position worth keeping: without this
    // every position but the first would be an inverted rectangle.
    if (cropW == 0 || cropH == 0) return row[scaleIndex];

    const double rangeX = static_cast<double>(width - cropW);
    const double rangeY = static_cast<double>(height - cropH);
    const double n = gridSteps;
    double nX = n;
    double nY = n;
    if (rangeY > rangeX) {
        nX = std::floor(rangeX / rangeY * (n - 1) + 1);
    } else {
        nY = std::floor(rangeY / std::max(1.0, rangeX) * (n - 1) + 1);
    }
    const double stepX = std::max(1.0, rangeX / std::max(nX - 1, 1.0));
    const double stepY = std::max(1.0, rangeY / std::max(nY - 1, 1.0));
    const uint64_t countX = static_cast<uint64_t>(rangeX / stepX + 1);
    const uint64_t countY = static_cast<uint64_t>(rangeY / stepY + 1);

    CropCell& cell = row[scaleIndex];
    cell.reserve(countX * countY);
    for (uint64_t i = 0; i < countX; ++i) {
        const int64_t left = static_cast<int64_t>(std::floor(static_cast<double>(i) * stepX));
        const int64_t right = left + static_cast<int64_t>(cropW) - 1;
        for (uint64_t j = 0; j < countY; ++j) {
            const int64_t top = static_cast<int64_t>(std::floor(static_cast<double>(j) * stepY));
            const int64_t bottom = top + static_cast<int64_t>(cropH) - 1;
            if (right < 0 || bottom < 0 || static_cast<uint64_t>(right) >= width ||
                static_cast<uint64_t>(bottom) >= height) {
                continue;
            }
            CropRect crop;
            crop.left = static_cast<int32_t>(left);
            crop.right = static_cast<int32_t>(right);
            crop.top = static_cast<int32_t>(top);
            crop.bottom = static_cast<int32_t>(bottom);
            cell.push_back(crop);
        }
    }
    return cell;
}

const CropRow& RandomCropGenerator::BuildAspectRow(uint32_t aspectIndex) {
    CropRow& row = Row(aspectIndex);
    row.reserve(scaleRatios.size());
    for (uint32_t s = 0; s < scaleRatios.size(); ++s) {
        if (s >= row.size() || row[s].empty()) BuildCell(aspectIndex, s);
    }
    return row;
}

const CropTable& RandomCropGenerator::BuildAll() {
    cropTable.reserve(aspectRatios.size());
    for (uint32_t a = 0; a < aspectRatios.size(); ++a) BuildAspectRow(a);
    return cropTable;
}

uint32_t RandomCropGenerator::FindAspect(double ratio) {
    cropTable.reserve(aspectRatios.size());
    for (uint32_t i = 0; i < aspectRatios.size(); ++i) {
        if (i == cropTable.size()) cropTable.emplace_back();
        if (Same(aspectRatios[i].ratio, ratio)) return i;
    }
    return static_cast<uint32_t>(aspectRatios.size());
}

const CropRow& RandomCropGenerator::CropsForAspect(double ratio, uint32_t& aspectIndex) {
    aspectIndex = FindAspect(ratio);
    if (aspectIndex == aspectRatios.size()) aspectRatios.push_back(RatioEntry{ratio, true});
    return BuildAspectRow(aspectIndex);
}

const CropCell& RandomCropGenerator::CropsForSize(double cropWidth, double cropHeight,
                                                  uint32_t& aspectIndex, uint32_t& scaleIndex) {
    const double W = static_cast<double>(width);
    const double H = static_cast<double>(height);
    const double r = cropWidth / cropHeight;
    const double scale = r > W / H ? cropWidth / W : cropHeight / H;

    aspectIndex = FindAspect(r);
    if (aspectIndex == aspectRatios.size()) {
        aspectRatios.push_back(RatioEntry{r, true});
        cropTable.emplace_back();
    }
    CropRow& row = cropTable[aspectIndex];
    scaleIndex = static_cast<uint32_t>(scaleRatios.size());
    for (uint32_t s = 0; s < scaleRatios.size(); ++s) {
        if (s == row.size()) row.emplace_back();
        if (Same(scaleRatios[s].ratio, scale)) {
            scaleIndex = s;
            break;
        }
    }
    if (scaleIndex == scaleRatios.size()) {
        scaleRatios.push_back(RatioEntry{scale, true});
        row.emplace_back();
    }
    return BuildCell(aspectIndex, scaleIndex);
}

CellRange RandomCropGenerator::Cells(uint32_t aspectIndex, uint32_t scaleIndex) {
    CellRange cells;
    // An index past the table, or a row without cells, is an empty range.
    const size_t firstRow = aspectIndex == kAllIndices ? 0 : aspectIndex;
    const size_t lastRow = aspectIndex == kAllIndices
                               ? cropTable.size()
                               : std::min<size_t>(size_t{aspectIndex} + 1, cropTable.size());
    for (size_t a = firstRow; a < lastRow; ++a) {
        CropRow& row = cropTable[a];
        const size_t firstCell = scaleIndex == kAllIndices ? 0 : scaleIndex;
        const size_t lastCell = scaleIndex == kAllIndices
                                    ? row.size()
                                    : std::min<size_t>(size_t{scaleIndex} + 1, row.size());
        for (size_t s = firstCell; s < lastCell; ++s) cells.push_back(&row[s]);
    }
    return cells;
}

ConstCellRange RandomCropGenerator::EnabledCells(uint32_t aspectIndex) const {
    const uint64_t rows = cropTable.size();
    uint64_t first = 0;
    uint64_t last = rows;
    if (aspectIndex != kAllIndices) {
        first = aspectIndex;
        last = static_cast<uint64_t>(aspectIndex) + 1;
    }
    if (first > last || last > rows) {
        throw Wefty::exception(eInvalidRequest, "invalid Croprects start or end index", 141,
                               "source/RandomCropGenerator");
    }
    ConstCellRange cells;
    for (uint64_t a = first; a < last; ++a) {
        if (a >= aspectRatios.size() || !aspectRatios[a].enabled) continue;
        const CropRow& row = cropTable[a];
        for (uint32_t s = 0; s < row.size() && s < scaleRatios.size(); ++s) {
            if (scaleRatios[s].enabled) cells.push_back(&row[s]);
        }
    }
    return cells;
}

}  // namespace smartCrop
