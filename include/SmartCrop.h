// smartcrop: proposes good crops of photographs.
//
// The one header a host includes. Objects are reference counted: every
// factory result and every returned list starts with a count of 1 and is
// ended with Release(). The virtual functions of each interface are called
// by slot: their order is the binary interface and never changes.
#ifndef SMARTCROP_SMARTCROP_H
#define SMARTCROP_SMARTCROP_H

#include <cstdint>

#include "CommonStructures.h"

#if defined(_WIN32)
#define SMARTCROP_API __declspec(dllimport)
#elif defined(SMARTCROP_BUILDING_LIBRARY)
#define SMARTCROP_API __attribute__((visibility("default")))
#else
#define SMARTCROP_API
#endif

namespace smartCrop {

// Root of every interface. Slots 0 to 2.
class IBaseClass {
protected:
    // Objects end with Release(), never with delete.
    virtual ~IBaseClass() = default;

public:
    // Count before the decrement; the object is destroyed when that was 1.
    virtual uint32_t Release() = 0;
    // Count before the increment.
    virtual uint32_t AddRef() = 0;
};

// The library's private copy of a host's 8-bit image.
class IImage : public IBaseClass {
public:
    // Deletes the object at once, whatever its count.
    virtual void Destroy() = 0;
    virtual uint8_t* GetPixels() = 0;
    virtual const uint8_t* GetConstPixels() const = 0;
    virtual uint64_t GetWidth() const = 0;
    virtual uint64_t GetHeight() const = 0;
    virtual uint64_t GetChannelCount() const = 0;
    virtual uint64_t GetRowStride() const = 0;
    virtual uint64_t GetPixelStride() const = 0;
    // Entry 0..3 of the channel offsets given at creation; 0 for other indices.
    virtual uint64_t GetChannelOffset(uint32_t index) const = 0;
};

// A read-only snapshot of crop rectangles.
class ICropRects : public IBaseClass {
public:
    virtual uint64_t GetCount() const = 0;
    // The first record; null when the list is empty.
    virtual const CropRect* GetRects() const = 0;
};

// A read-only snapshot of rectangles of interest.
class IRectsOfInterest : public IBaseClass {
public:
    virtual uint64_t GetCount() const = 0;
    // The first record; null when the list is empty.
    virtual const RectOfInterest* GetRects() const = 0;
};

// The suggestion engine of one image. One thread at a time per object.
// Operations returning eErrorCode leave a text in GetLastErrorText() where
// one exists, and leave out-arguments untouched on failure.
class ISmartCrop : public IBaseClass {
public:
    // Analyses the image (the long step). The image must outlive this object.
    virtual eErrorCode Init(IImage* image, const SmartCropParams* params) = 0;
    // Stores the image and resets the parameters to their defaults; builds nothing.
    virtual eErrorCode InitDefaults(IImage* image) = 0;
    // The stored parameters, valid as long as the object; may be edited in
    // place and passed back to Init.
    virtual SmartCropParams* GetParams() = 0;
    // The aspect-ratio list and its length; null and 0 before Init or when empty.
    virtual const RatioEntry* GetAspectRatios(uint64_t* count) = 0;
    // Enables or disables a ratio, appending it when new.
    virtual eErrorCode SetAspectRatio(double ratio, bool enabled) = 0;
    virtual const RatioEntry* GetScaleRatios(uint64_t* count) = 0;
    virtual eErrorCode SetScaleRatio(double ratio, bool enabled) = 0;
    // A new list with the rectangles of interest, detected faces included.
    virtual eErrorCode GetRectsOfInterest(IRectsOfInterest** out) = 0;
    virtual eErrorCode AddRectOfInterest(const RectOfInterest* rect) = 0;
    virtual eErrorCode Reserved12() = 0;
    // Every enabled candidate with its features, unranked.
    virtual eErrorCode GetAllCrops(ICropRects** out, const SuggestionParams* request) = 0;
    // The ranked, diverse suggestions.
    virtual eErrorCode GetSuggestions(ICropRects** out, const SelectionParams* selection,
                                      const SuggestionParams* request) = 0;
    // Fills the features of the caller's rectangle.
    virtual eErrorCode ScoreCrop(CropRect* crop) = 0;
    // Text of the last failure; empty after a success. Valid until the next call.
    virtual const char* GetLastErrorText() = 0;
};

}  // namespace smartCrop

extern "C" {

// A counted copy of the host's pixels: rows x cols pixels of `channels` bytes,
// rows tightly packed. The analysis reads 4 bytes a pixel: one ignored byte,
// then red, green, blue. A null `pixels` gives a zeroed image. Null on failure.
SMARTCROP_API smartCrop::IImage* CreateImageObj(uint64_t rows, uint64_t cols, uint64_t channels,
                                                const uint64_t* channelOffsets,
                                                const uint8_t* pixels);

// Analyses `image` and returns the engine for it, or null when it could not be
// made. Init failures leave an object whose GetLastErrorText() says why.
SMARTCROP_API smartCrop::ISmartCrop* CreateSmartCropObj(smartCrop::IImage* image,
                                                        const smartCrop::SmartCropParams* params);

// Path of the face detector's configuration file (default "data/ovex3",
// relative to the working folder). Read once, at the first face detection.
SMARTCROP_API void SetFaceDetectorConfigDir(const char* path);

}  // extern "C"

#endif  // SMARTCROP_SMARTCROP_H
