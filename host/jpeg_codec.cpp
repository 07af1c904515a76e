// JPEG through libjpeg-turbo: the header first, DCT scaling for reduced
// decodes, and the codec's warnings (premature end, corrupt data) as errors.
#include <turbojpeg.h>

#include <algorithm>
#include <memory>
#include <string>

#include "host/codecs.h"
#include "host/exif_orientation.h"

namespace smartCrop::host {

namespace {

struct TjHandle {
    explicit TjHandle(tjhandle h) : handle(h) {
        if (handle == nullptr) throw HostError("out of memory for the JPEG codec");
    }
    ~TjHandle() { tjDestroy(handle); }
    TjHandle(const TjHandle&) = delete;
    TjHandle& operator=(const TjHandle&) = delete;
    tjhandle handle;
};

std::string codec_text(tjhandle handle) {
    return tjGetErrorStr2(handle);
}

// Whether the file ends with its end-of-image marker (a few bytes of
// padding after it allowed): a file cut short does not, whatever the codec
// makes of where its data stops.
bool ends_whole(const std::vector<uint8_t>& b) {
    const size_t from = b.size() > 18 ? b.size() - 18 : 0;
    for (size_t i = b.size(); i-- > from + 1;)
        if (b[i - 1] == 0xFF && b[i] == 0xD9) return true;
    return false;
}

// The codec's words for damage, said as what it means for the file.
[[noreturn]] void fail(tjhandle handle, const std::vector<uint8_t>& bytes) {
    const std::string text = codec_text(handle);
    if (!ends_whole(bytes)) throw HostError("the JPEG file is truncated (" + text + ")");
    throw HostError("the JPEG data is damaged (" + text + ")");
}

// As photo editors store it (inverted, Adobe style), in place.
void cmyk_to_xrgb(PixelBuffer& pixels) {
    for (size_t i = 0; i < pixels.size(); i += 4) {
        const int k = pixels[i + 3];
        uint8_t rgb[3];
        for (int c = 0; c < 3; ++c)
            rgb[c] = static_cast<uint8_t>(k - ((255 - pixels[i + c]) * k >> 8));
        pixels[i] = 0;
        pixels[i + 1] = rgb[0];
        pixels[i + 2] = rgb[1];
        pixels[i + 3] = rgb[2];
    }
}

}  // namespace

RawDecode decode_jpeg(const std::vector<uint8_t>& bytes, const DecodeOptions& options,
                      SizeCheck check) {
    TjHandle tj(tjInitDecompress());
    int width = 0, height = 0, subsampling = 0, colourspace = 0;
    // A warning here (stray bytes before a marker) still gives the size.
    if (tjDecompressHeader3(tj.handle, bytes.data(), static_cast<unsigned long>(bytes.size()),
                            &width, &height, &subsampling, &colourspace) != 0 &&
        !(options.lenient && tjGetErrorCode(tj.handle) == TJERR_WARNING && width > 0)) {
        fail(tj.handle, bytes);
    }
    // The header said nothing of a size: cut short before its frame.
    if (width <= 0 || height <= 0) {
        if (!ends_whole(bytes)) throw HostError("the JPEG file is truncated (in its header)");
        throw HostError("the JPEG data is damaged (its header gives no size)");
    }
    check({static_cast<uint64_t>(width), static_cast<uint64_t>(height)}, options);

    int factor = 1;
    if (options.reducedLongSide > 0) {
        while (factor < 8 && static_cast<uint32_t>(std::max(width, height) / (factor * 2)) >=
                                 options.reducedLongSide)
            factor *= 2;
    }
    const tjscalingfactor scale{1, factor};
    RawDecode out;
    DecodedImage& image = out.image;
    image.format = ImageFormat::Jpeg;
    image.fullWidth = static_cast<uint32_t>(width);
    image.fullHeight = static_cast<uint32_t>(height);
    image.width = static_cast<uint32_t>(TJSCALED(width, scale));
    image.height = static_cast<uint32_t>(TJSCALED(height, scale));
    image.pixels = PixelBuffer(image.width, image.height);
    // Progressive files of very many scans cost time without end.
    int flags = TJFLAG_LIMITSCANS;
    if (!options.lenient) flags |= TJFLAG_STOPONWARNING;
    // Four-colour files come out as CMYK, which is the same size a pixel.
    const bool cmyk = colourspace == TJCS_CMYK || colourspace == TJCS_YCCK;
    if (tjDecompress2(tj.handle, bytes.data(), static_cast<unsigned long>(bytes.size()),
                      image.pixels.data(), static_cast<int>(image.width), 0,
                      static_cast<int>(image.height), cmyk ? TJPF_CMYK : TJPF_XRGB, flags) != 0) {
        if (!(options.lenient && tjGetErrorCode(tj.handle) == TJERR_WARNING))
            fail(tj.handle, bytes);
    }
    if (cmyk) cmyk_to_xrgb(image.pixels);
    out.orientation = jpeg_orientation(bytes);
    return out;
}

std::vector<uint8_t> encode_jpeg(const uint8_t* xrgb, uint32_t width, uint32_t height,
                                 size_t stride, int quality) {
    TjHandle tj(tjInitCompress());
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    if (tjCompress2(tj.handle, xrgb, static_cast<int>(width), static_cast<int>(stride),
                    static_cast<int>(height), TJPF_XRGB, &buffer, &size, TJSAMP_420, quality,
                    TJFLAG_ACCURATEDCT) != 0) {
        tjFree(buffer);
        throw HostError("cannot encode the JPEG (" + codec_text(tj.handle) + ")");
    }
    std::vector<uint8_t> out(buffer, buffer + size);
    tjFree(buffer);
    return out;
}

}  // namespace smartCrop::host
