// Plain records and constants shared by the library and its hosts.
// Every record is a standard-layout struct of fixed-width fields; the layout
// is part of the binary interface and is frozen by the static_asserts below.
#ifndef SMARTCROP_COMMON_STRUCTURES_H
#define SMARTCROP_COMMON_STRUCTURES_H

#include <cstddef>
#include <cstdint>

namespace smartCrop {

// Returned by every operation that can fail, and thrown as a plain value inside.
// 2, 3 and 5 are retired and must never be reused.
enum eErrorCode : uint32_t {
    eSuccess = 0,
    eUnexpected = 1,
    eInvalidRequest = 4,
    eOutOfMemory = 6,
    eModelMissing = 7,
    eNotInitialised = 8,
};

// Index meaning "every aspect ratio" or "every scale".
constexpr uint32_t kAllIndices = 0xEFFFFFFFu;

// One entry of the aspect-ratio list or of the scale list.
struct RatioEntry {
    double ratio = 0.0;   // width over height, or a scale
    bool enabled = true;  // a disabled entry is never suggested
};

enum eRoiKind : uint32_t {
    eRoiWanted = 0,     // soft: the crop should contain it
    eRoiRequired = 1,   // hard: the crop must contain all of it
    eRoiUnwanted = 2,   // soft: the crop should leave it out
    eRoiForbidden = 3,  // hard: the crop must not touch it
};

// A region the host (or the face detector) cares about, in source pixels,
// both ends inclusive.
struct RectOfInterest {
    int32_t left = 0;
    int32_t right = 0;
    int32_t top = 0;
    int32_t bottom = 0;
    uint32_t kind = eRoiWanted;
    double reserved = 0.0;  // carried, read by nothing
    bool isFace = false;    // counts only in queries with useFaces
    bool active = true;     // inactive rectangles are ignored everywhere
};

// One candidate crop or suggestion, in source pixels, both ends inclusive.
struct CropRect {
    int32_t left = 0;
    int32_t right = 0;
    int32_t top = 0;
    int32_t bottom = 0;
    double aestheticScore = 0.0;  // fixed model, 0..1
    double coverageScore = 0.0;   // weighted share of salient mass inside
    double borderScore = 0.0;     // 1 for clean edges
    double peakShare = 0.0;       // share of contrast peaks inside
    double centreShare = 0.0;     // share of contrast peaks in the central third
    double roiScore = 1.0;        // 1 when no rectangle of interest applies
    double score = 0.0;           // blended rank score, set by GetSuggestions
    bool analysed = false;        // the five feature fields are valid
    bool wellCovered = false;     // the three coverage shares all reach 0.4
};

// Parameters of a smart-crop object. The record never frees its arrays: a host
// may point them at its own memory. The smart-crop object keeps a deep copy.
struct SmartCropParams {
    RatioEntry* aspectRatios = nullptr;
    RatioEntry* scaleRatios = nullptr;
    RectOfInterest* rectsOfInterest = nullptr;
    float marginTop = 0.05f;     // of the crop height, kept free above a rectangle of interest
    float marginSide = 0.1f;     // of the crop width, left and right
    float marginBottom = 0.15f;  // of the crop height, below
    float saliencyFill = -1.0f;  // paint rectangles of interest into the saliency maps; <0 off
    float edgeFill = -1.0f;      // same for the edge map
    float borderFill = -1.0f;    // same for the four border maps
    float legacyA = 0.1875f;     // carried and copied, read by nothing
    float legacyB = 0.625f;
    float legacyC = 0.1875f;
    float legacyD = 100.0f;
    float placementWeight = 0.01f;  // weight of the placement term of roiScore
    uint32_t aspectRatioCount = 0;
    uint32_t scaleRatioCount = 0;
    uint32_t rectsOfInterestCount = 0;
    uint32_t gridBudget = 50;  // halved, the most grid positions along an axis
    bool detectFaces = false;
    uint32_t ownsArrays = 1;  // read by nothing
};

// What a query asks for. width and height together ask for one exact crop
// size; aspectRatio alone for one ratio at all scales; none for everything.
struct SuggestionParams {
    double width = 0.0;
    double height = 0.0;
    double aspectRatio = 0.0;
    bool useFaces = false;
};

// How suggestions are chosen. The defaults are a useful blend (the three main
// features and the rectangles of interest at equal strength, five answers);
// a zeroed record would ask for nothing.
struct SelectionParams {
    uint32_t count = 5;
    uint32_t mode = 0;  // 0 blend; 1, 2, 3 rank on one feature only
    double weights[6] = {1.0, 1.0, 1.0, 0.0, 0.0, 1.0};
    bool perAspectRatio = false;
};

// The records cross the binary interface by pointer: their layout is frozen.
static_assert(sizeof(eErrorCode) == 4, "eErrorCode is 32-bit");
static_assert(eSuccess == 0 && eUnexpected == 1 && eInvalidRequest == 4 && eOutOfMemory == 6 &&
                  eModelMissing == 7 && eNotInitialised == 8 && kAllIndices == 0xEFFFFFFFu,
              "error codes and kAllIndices are part of the binary interface");
static_assert(sizeof(RatioEntry) == 16 && offsetof(RatioEntry, enabled) == 8, "RatioEntry layout");
static_assert(sizeof(RectOfInterest) == 40 && offsetof(RectOfInterest, right) == 4 &&
                  offsetof(RectOfInterest, top) == 8 && offsetof(RectOfInterest, bottom) == 12 &&
                  offsetof(RectOfInterest, kind) == 16 &&
                  offsetof(RectOfInterest, reserved) == 24 &&
                  offsetof(RectOfInterest, isFace) == 32 && offsetof(RectOfInterest, active) == 33,
              "RectOfInterest layout");
static_assert(sizeof(CropRect) == 80 && offsetof(CropRect, aestheticScore) == 16 &&
                  offsetof(CropRect, coverageScore) == 24 &&
                  offsetof(CropRect, borderScore) == 32 && offsetof(CropRect, peakShare) == 40 &&
                  offsetof(CropRect, centreShare) == 48 && offsetof(CropRect, roiScore) == 56 &&
                  offsetof(CropRect, score) == 64 && offsetof(CropRect, analysed) == 72 &&
                  offsetof(CropRect, wellCovered) == 73,
              "CropRect layout");
static_assert(sizeof(SmartCropParams) == 96 && offsetof(SmartCropParams, scaleRatios) == 8 &&
                  offsetof(SmartCropParams, rectsOfInterest) == 16 &&
                  offsetof(SmartCropParams, marginTop) == 24 &&
                  offsetof(SmartCropParams, placementWeight) == 64 &&
                  offsetof(SmartCropParams, aspectRatioCount) == 68 &&
                  offsetof(SmartCropParams, scaleRatioCount) == 72 &&
                  offsetof(SmartCropParams, rectsOfInterestCount) == 76 &&
                  offsetof(SmartCropParams, gridBudget) == 80 &&
                  offsetof(SmartCropParams, detectFaces) == 84 &&
                  offsetof(SmartCropParams, ownsArrays) == 88,
              "SmartCropParams layout");
static_assert(sizeof(SuggestionParams) == 32 && offsetof(SuggestionParams, aspectRatio) == 16 &&
                  offsetof(SuggestionParams, useFaces) == 24,
              "SuggestionParams layout");
static_assert(sizeof(SelectionParams) == 64 && offsetof(SelectionParams, mode) == 4 &&
                  offsetof(SelectionParams, weights) == 8 &&
                  offsetof(SelectionParams, perAspectRatio) == 56,
              "SelectionParams layout");

}  // namespace smartCrop

#endif  // SMARTCROP_COMMON_STRUCTURES_H
