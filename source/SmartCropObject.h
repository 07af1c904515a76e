// The object a host talks to: one image, its candidate generator, its
// analysis, the stored parameters and the last error text.
#ifndef SMARTCROP_SOURCE_SMARTCROPOBJECT_H
#define SMARTCROP_SOURCE_SMARTCROPOBJECT_H

#include <memory>
#include <string>
#include <vector>

#include "SmartCrop.h"
#include "source/CropAnalyzer.h"
#include "source/RandomCropGenerator.h"
#include "source/RefCount.h"

namespace smartCrop {

class SmartCrop final : public ISmartCrop, private CRefCount {
public:
    // A new object with the default parameters, not yet built.
    static SmartCrop* Create();

    SMARTCROP_IMPLEMENT_REFCOUNT

    eErrorCode Init(IImage* image, const SmartCropParams* params) override;
    eErrorCode InitDefaults(IImage* image) override;
    SmartCropParams* GetParams() override { return &params; }
    const RatioEntry* GetAspectRatios(uint64_t* count) override;
    eErrorCode SetAspectRatio(double ratio, bool enabled) override;
    const RatioEntry* GetScaleRatios(uint64_t* count) override;
    eErrorCode SetScaleRatio(double ratio, bool enabled) override;
    eErrorCode GetRectsOfInterest(IRectsOfInterest** out) override;
    eErrorCode AddRectOfInterest(const RectOfInterest* rect) override;
    eErrorCode Reserved12() override { return eSuccess; }
    eErrorCode GetAllCrops(ICropRects** out, const SuggestionParams* request) override;
    eErrorCode GetSuggestions(ICropRects** out, const SelectionParams* selection,
                              const SuggestionParams* request) override;
    eErrorCode ScoreCrop(CropRect* crop) override;
    const char* GetLastErrorText() override { return lastError.c_str(); }

private:
    SmartCrop();
    ~SmartCrop() override = default;

    // Replaces the stored record by a deep copy of `source`, which may be the
    // stored record itself, edited in place by the host.
    void StoreParams(const SmartCropParams& source);
    void ResetParams();
    void RequireBuilt();
    // Makes sure the candidates of the request exist and are scored; sets the
    // index range they occupy.
    void PrepareCandidates(const SuggestionParams& request, uint32_t& aspectIndex,
                           uint32_t& scaleIndex, bool perAspectRatio);
    // Width and height together ask for one size that fits inside the image.
    bool FittingExactSize(const SuggestionParams& request) const;
    void CheckRect(const RectOfInterest& rect);
    // Built, and with maps to read.
    void RequireAnalysis();

    std::unique_ptr<RandomCropGenerator> generator;
    IImage* image = nullptr;  // the host keeps it alive
    std::unique_ptr<CropAnalyzer> analyzer;
    SmartCropParams params;
    std::string lastError;
    // Storage of the stored record's arrays. The record's pointers are the
    // host's to read (and even to overwrite): only these vectors are freed.
    std::vector<RatioEntry> ownedAspects;
    std::vector<RatioEntry> ownedScales;
    std::vector<RectOfInterest> ownedRects;
};

}  // namespace smartCrop

#endif  // SMARTCROP_SOURCE_SMARTCROPOBJECT_H
