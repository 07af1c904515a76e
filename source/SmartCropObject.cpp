#include "source/SmartCropObject.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "source/ErrorFunnel.h"
#include "source/RectLists.h"
#include "source/SequentialOpenCv.h"

namespace smartCrop {

namespace {

struct ReleaseDeleter {
    void operator()(IBaseClass* object) const { object->Release(); }
};

template <class Record>
std::vector<Record> CopyArray(const Record* data, uint32_t count) {
    if (count == 0) return {};
    return std::vector<Record>(data, data + count);
}

const RatioEntry* ListOrNull(const std::vector<RatioEntry>& list, uint64_t* count) {
    if (count != nullptr) *count = list.size();
    return list.empty() ? nullptr : list.data();
}

}  // namespace

SmartCrop::SmartCrop() = default;

SmartCrop* SmartCrop::Create() {
    return new SmartCrop;
}

void SmartCrop::StoreParams(const SmartCropParams& source) {
    if ((source.aspectRatioCount > 0 && source.aspectRatios == nullptr) ||
        (source.scaleRatioCount > 0 && source.scaleRatios == nullptr) ||
        (source.rectsOfInterestCount > 0 && source.rectsOfInterest == nullptr)) {
        FailWith(lastError, "SmartCrop: params has a null array with a non-zero count",
                 eInvalidRequest);
    }
    for (uint32_t i = 0; i < source.rectsOfInterestCount; ++i) CheckRect(source.rectsOfInterest[i]);
    // Copy first: `source` may point into the vectors being replaced.
    std::vector<RatioEntry> aspects = CopyArray(source.aspectRatios, source.aspectRatioCount);
    std::vector<RatioEntry> scales = CopyArray(source.scaleRatios, source.scaleRatioCount);
    std::vector<RectOfInterest> rects =
        CopyArray(source.rectsOfInterest, source.rectsOfInterestCount);
    const SmartCropParams scalars = source;

    ownedAspects = std::move(aspects);
    ownedScales = std::move(scales);
    ownedRects = std::move(rects);
    params = scalars;
    params.aspectRatios = ownedAspects.empty() ? nullptr : ownedAspects.data();
    params.scaleRatios = ownedScales.empty() ? nullptr : ownedScales.data();
    params.rectsOfInterest = ownedRects.empty() ? nullptr : ownedRects.data();
    params.ownsArrays = 1;
}

void SmartCrop::ResetParams() {
    ownedAspects.clear();
    ownedScales.clear();
    ownedRects.clear();
    params = SmartCropParams();
}

void SmartCrop::RequireBuilt() {
    if (!generator)
        FailWith(lastError, "SmartCrop: the object is not initialised", eNotInitialised);
}

void SmartCrop::RequireAnalysis() {
    if (!generator || !analyzer) {
        FailWith(lastError, "SmartCrop: the object is not initialised", eNotInitialised);
    }
    if (!analyzer->has_maps()) {
        FailWith(
            lastError,
            "SmartCrop: the image has no analysis: it is too thin (aspect ratio beyond 1:1280)",
            eUnexpected);
    }
}

eErrorCode SmartCrop::Init(IImage* newImage, const SmartCropParams* newParams) {
    return RunFunnelled(lastError, [&] {
        if (newImage == nullptr) FailWith(lastError, "SmartCrop: image is null", eInvalidRequest);
        if (newParams == nullptr) FailWith(lastError, "SmartCrop: params is null", eInvalidRequest);
        const uint64_t width = newImage->GetWidth();
        const uint64_t height = newImage->GetHeight();
        if (width == 0 || height == 0) {
            FailWith(lastError, "SmartCrop: the image is empty", eInvalidRequest);
        }
        if (width > static_cast<uint64_t>(std::numeric_limits<int32_t>::max()) ||
            height > static_cast<uint64_t>(std::numeric_limits<int32_t>::max())) {
            FailWith(lastError, "SmartCrop: the image is too large", eInvalidRequest);
        }
        // The analysis reads four bytes a pixel; anything else would read
        // outside the block or with the wrong geometry.
        if (newImage->GetChannelCount() != 4) {
            FailWith(lastError, "SmartCrop: the image must have 4 channels", eInvalidRequest);
        }
        // A second Init replaces what the first built; a failed one leaves
        // the object unbuilt rather than half built.
        generator.reset();
        analyzer.reset();
        image = newImage;
        // Also when `newParams` is the stored record, edited in place by the
        // host: its arrays may now be the host's, and are copied in.
        StoreParams(*newParams);

        auto newGenerator = std::make_unique<RandomCropGenerator>(
            width, height, ownedAspects, ownedScales, params.gridBudget >> 1);
        std::unique_ptr<CropAnalyzer> newAnalyzer;
        try {
            SequentialOpenCv sequential;
            newAnalyzer = std::make_unique<CropAnalyzer>(*image, params, ownedRects);
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& e) {
            // An OpenCV failure, such as an image too thin for the saliency
            // stage: the host gets the reason, not only a code.
            lastError = std::string("SmartCrop: the image could not be analysed: ") + e.what();
            throw eUnexpected;
        }
        // Not a slip: the analyser took the rectangles to paint its maps; Init
        // then sets the list the queries read, the same rectangles.
        newAnalyzer->set_rects(ownedRects);
        generator = std::move(newGenerator);
        analyzer = std::move(newAnalyzer);
    });
}

eErrorCode SmartCrop::InitDefaults(IImage* newImage) {
    return RunFunnelled(lastError, [&] {
        // A new image invalidates whatever was built for the old one.
        generator.reset();
        analyzer.reset();
        image = newImage;
        ResetParams();
    });
}

const RatioEntry* SmartCrop::GetAspectRatios(uint64_t* count) {
    if (!generator) {
        if (count != nullptr) *count = 0;
        return nullptr;
    }
    return ListOrNull(generator->GetAspectRatios(), count);
}

const RatioEntry* SmartCrop::GetScaleRatios(uint64_t* count) {
    if (!generator) {
        if (count != nullptr) *count = 0;
        return nullptr;
    }
    return ListOrNull(generator->GetScaleRatios(), count);
}

eErrorCode SmartCrop::SetAspectRatio(double ratio, bool enabled) {
    if (!generator) return eNotInitialised;
    return RunFunnelled(lastError, [&] { generator->SetAspectRatio(ratio, enabled); });
}

eErrorCode SmartCrop::SetScaleRatio(double ratio, bool enabled) {
    // Checked inside the funnel, unlike SetAspectRatio: before Init the host
    // gets a code and a text instead of a crash.
    return RunFunnelled(lastError, [&] {
        RequireBuilt();
        generator->SetScaleRatio(ratio, enabled);
    });
}

eErrorCode SmartCrop::GetRectsOfInterest(IRectsOfInterest** out) {
    if (!generator) return eNotInitialised;
    return RunFunnelled(lastError, [&] {
        RequireBuilt();
        if (out == nullptr) FailWith(lastError, "SmartCrop: out is null", eInvalidRequest);
        std::unique_ptr<CRectsOfInterest, ReleaseDeleter> list(new CRectsOfInterest);
        list->Append(analyzer->rects().begin(), analyzer->rects().end());
        *out = list.release();
    });
}

void SmartCrop::CheckRect(const RectOfInterest& rect) {
    // An inverted rectangle has no area to cover or avoid; every measure of
    // it would divide by a non-positive count.
    if (rect.left > rect.right || rect.top > rect.bottom) {
        FailWith(lastError, "SmartCrop: a rectangle of interest is empty or inverted",
                 eInvalidRequest);
    }
}

eErrorCode SmartCrop::AddRectOfInterest(const RectOfInterest* rect) {
    return RunFunnelled(lastError, [&] {
        RequireBuilt();
        if (rect == nullptr) FailWith(lastError, "SmartCrop: rect is null", eInvalidRequest);
        CheckRect(*rect);
        analyzer->add_rect(*rect);
    });
}

bool SmartCrop::FittingExactSize(const SuggestionParams& request) const {
    return request.width > 0 && request.height > 0 &&
           request.width <= static_cast<double>(image->GetWidth()) &&
           request.height <= static_cast<double>(image->GetHeight());
}

void SmartCrop::PrepareCandidates(const SuggestionParams& request, uint32_t& aspectIndex,
                                  uint32_t& scaleIndex, bool perAspectRatio) {
    if (params.detectFaces && request.useFaces) {
        try {
            SequentialOpenCv sequential;
            analyzer->detect_faces();
        } catch (...) {
            FailWith(lastError, "SmartCrop: Error detecting faces", eUnexpected);
        }
    }
    const std::vector<RatioEntry>& aspects = generator->GetAspectRatios();
    const std::vector<RatioEntry>& scales = generator->GetScaleRatios();
    if (FittingExactSize(request)) {
        if (perAspectRatio) {
            FailWith(lastError, "SmartCrop:  perAspectRatio was true", eInvalidRequest);
        }
        if (request.aspectRatio > 0) {
            FailWith(lastError, "SmartCrop:  inSuggestionParams aspectRatio > 0", eInvalidRequest);
        }
        generator->CropsForSize(request.width, request.height, aspectIndex, scaleIndex);
        if (!aspects[aspectIndex].enabled || !scales[scaleIndex].enabled) {
            FailWith(lastError, "SmartCrop: input aspect ratio or scale ratio is disabled",
                     eInvalidRequest);
        }
    } else if (request.aspectRatio > 0 && !perAspectRatio) {
        generator->CropsForAspect(request.aspectRatio, aspectIndex);
        if (!aspects[aspectIndex].enabled) {
            FailWith(lastError, "SmartCrop: input aspect ratio is disabled", eInvalidRequest);
        }
        // Not a slip: asked again after the check, as the query is defined;
        // the cells are built by the first call, the second only finds them.
        generator->CropsForAspect(request.aspectRatio, aspectIndex);
    } else {
        generator->BuildAll();
    }
    analyzer->score_candidates(request.useFaces, generator->Cells(aspectIndex, scaleIndex));
}

eErrorCode SmartCrop::GetAllCrops(ICropRects** out, const SuggestionParams* request) {
    return RunFunnelled(lastError, [&] {
        RequireAnalysis();
        if (out == nullptr || request == nullptr) {
            FailWith(lastError, "SmartCrop: a null argument", eInvalidRequest);
        }
        uint32_t aspectIndex = kAllIndices, scaleIndex = kAllIndices;
        // Always per aspect ratio: an exact size is refused, a ratio widens to all.
        PrepareCandidates(*request, aspectIndex, scaleIndex, true);
        std::unique_ptr<CCropRects, ReleaseDeleter> list(new CCropRects);
        for (const CropCell* cell : generator->EnabledCells(kAllIndices))
            list->Append(cell->begin(), cell->end());
        *out = list.release();
    });
}

eErrorCode SmartCrop::GetSuggestions(ICropRects** out, const SelectionParams* selection,
                                     const SuggestionParams* request) {
    return RunFunnelled(lastError, [&] {
        RequireAnalysis();
        if (out == nullptr || selection == nullptr || request == nullptr) {
            FailWith(lastError, "SmartCrop: a null argument", eInvalidRequest);
        }
        uint32_t aspectIndex = kAllIndices, scaleIndex = kAllIndices;
        PrepareCandidates(*request, aspectIndex, scaleIndex, selection->perAspectRatio);
        std::unique_ptr<CCropRects, ReleaseDeleter> list(new CCropRects);
        std::array<double, 6> weights;
        std::copy(std::begin(selection->weights), std::end(selection->weights), weights.begin());
        auto select = [&](const ConstCellRange& cells) {
            const std::vector<CropRect>& picked = analyzer->select_suggestions(
                selection->count, cells, request->useFaces, selection->mode, weights);
            list->Append(picked.begin(), picked.end());
        };
        if (FittingExactSize(*request)) {
            const CellRange cell = generator->Cells(aspectIndex, scaleIndex);
            select(ConstCellRange(cell.begin(), cell.end()));
        } else if (!selection->perAspectRatio) {
            select(generator->EnabledCells(aspectIndex));
        } else {
            const std::vector<RatioEntry>& aspects = generator->GetAspectRatios();
            for (uint32_t i = 0; i < aspects.size(); ++i) {
                if (aspects[i].enabled) select(generator->EnabledCells(i));
            }
        }
        *out = list.release();
    });
}

eErrorCode SmartCrop::ScoreCrop(CropRect* crop) {
    return RunFunnelled(lastError, [&] {
        RequireAnalysis();
        if (crop == nullptr) FailWith(lastError, "SmartCrop: crop is null", eInvalidRequest);
        // A rectangle the features cannot describe gets a code, not numbers
        // read from clamped garbage; one partly outside is scored on its
        // part inside the image.
        if (crop->left > crop->right || crop->top > crop->bottom) {
            FailWith(lastError, "SmartCrop: the crop rectangle is empty or inverted",
                     eInvalidRequest);
        }
        if (crop->right < 0 || crop->bottom < 0 || crop->left >= analyzer->analysis().sourceWidth ||
            crop->top >= analyzer->analysis().sourceHeight) {
            FailWith(lastError, "SmartCrop: the crop rectangle lies outside the image",
                     eInvalidRequest);
        }
        analyzer->compute_features(*crop);
    });
}

}  // namespace smartCrop
