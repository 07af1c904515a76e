#include "SmartCropObject.h"

#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>

#include "ErrorFunnel.h"
#include "sequential_opencv.h"

namespace smartCrop {

namespace {

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
        newAnalyzer->roiList = ownedRects;
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
        (void)out;
        FailWith(lastError, "SmartCrop: rectangles of interest are not available yet", eUnexpected);
    });
}

eErrorCode SmartCrop::AddRectOfInterest(const RectOfInterest* rect) {
    return RunFunnelled(lastError, [&] {
        (void)rect;
        FailWith(lastError, "SmartCrop: rectangles of interest are not available yet", eUnexpected);
    });
}

eErrorCode SmartCrop::GetAllCrops(ICropRects** out, const SuggestionParams* request) {
    return RunFunnelled(lastError, [&] {
        (void)out;
        (void)request;
        FailWith(lastError, "SmartCrop: crop queries are not available yet", eUnexpected);
    });
}

eErrorCode SmartCrop::GetSuggestions(ICropRects** out, const SelectionParams* selection,
                                     const SuggestionParams* request) {
    return RunFunnelled(lastError, [&] {
        (void)out;
        (void)selection;
        (void)request;
        FailWith(lastError, "SmartCrop: crop queries are not available yet", eUnexpected);
    });
}

eErrorCode SmartCrop::ScoreCrop(CropRect* crop) {
    return RunFunnelled(lastError, [&] {
        (void)crop;
        FailWith(lastError, "SmartCrop: crop queries are not available yet", eUnexpected);
    });
}

}  // namespace smartCrop
