// The candidate rectangles of one image: a deterministic grid of positions for
// each pair of an aspect ratio and a scale, made lazily and kept.
#ifndef SMARTCROP_SOURCE_RANDOMCROPGENERATOR_H
#define SMARTCROP_SOURCE_RANDOMCROPGENERATOR_H

#include <cstdint>
#include <vector>

#include "CommonStructures.h"

namespace smartCrop {

using CropCell = std::vector<CropRect>;
using CropRow = std::vector<CropCell>;
using CropTable = std::vector<CropRow>;
// Cells of the table handed to a later stage in place: the generator owns the
// records, scoring fills their features, selection reads them. Nothing is
// copied back and forth.
using CellRange = std::vector<CropCell*>;
using ConstCellRange = std::vector<const CropCell*>;

class RandomCropGenerator {
public:
    RandomCropGenerator(uint64_t width, uint64_t height, std::vector<RatioEntry> aspectRatios,
                        std::vector<RatioEntry> scaleRatios, uint32_t gridSteps);

    const std::vector<RatioEntry>& GetAspectRatios() const { return aspectRatios; }
    const std::vector<RatioEntry>& GetScaleRatios() const { return scaleRatios; }
    void SetAspectRatio(double ratio, bool enabled);
    void SetScaleRatio(double ratio, bool enabled);

    // The builders return the table's own storage rather than copies: every
    // caller reads the table afterwards anyway. A reference is valid until the
    // next builder call.
    const CropCell& BuildCell(uint32_t aspectIndex, uint32_t scaleIndex);
    const CropRow& BuildAspectRow(uint32_t aspectIndex);
    const CropTable& BuildAll();
    // Finds the ratio (appending it, enabled, when new) and builds its row.
    const CropRow& CropsForAspect(double ratio, uint32_t& aspectIndex);
    // Finds or appends the ratio and the scale of an exact crop size and builds that cell.
    const CropCell& CropsForSize(double cropWidth, double cropHeight, uint32_t& aspectIndex,
                                 uint32_t& scaleIndex);
    // The made cells of an index range (kAllIndices: every row, or every
    // cell of a row), whether enabled or not: the cells a query scores. A
    // range past the table is empty.
    CellRange Cells(uint32_t aspectIndex, uint32_t scaleIndex);
    // The enabled cells of one row, or of all rows for kAllIndices, in table
    // order: the cells a query ranks or hands out. An index past the table
    // is a fault of the caller.
    ConstCellRange EnabledCells(uint32_t aspectIndex) const;

private:
    bool Same(double a, double b) const;
    // Index of the first matching entry, or the list's length when none matches.
    // Rows are appended to the table as the walk reaches its end.
    uint32_t FindAspect(double ratio);
    CropRow& Row(uint32_t aspectIndex);

    uint64_t width;
    uint64_t height;
    std::vector<RatioEntry> aspectRatios;
    std::vector<RatioEntry> scaleRatios;
    double matchTolerance;
    CropTable cropTable;
    uint32_t gridSteps;
};

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_RANDOMCROPGENERATOR_H
