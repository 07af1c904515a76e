// Decoding for the library: the same pixels as OpenCV's codecs, the size
// checked before decoding, damage reported, orientation applied.
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "host/host_error.h"
#include "host/image_decoding.h"
#include "host/image_encoding.h"

namespace smartCrop::host {
namespace {

using Bytes = std::vector<uint8_t>;

// Smooth gradients with a textured block: JPEG damage and orientation show.
cv::Mat scene(int width, int height) {
    cv::Mat bgr(height, width, CV_8UC3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            bgr.at<cv::Vec3b>(y, x) = cv::Vec3b(static_cast<uint8_t>(x * 255 / width),
                                                static_cast<uint8_t>((x ^ y) & 0x3F),
                                                static_cast<uint8_t>(y * 255 / height));
    cv::rectangle(bgr, cv::Rect(width / 8, height / 5, width / 4, height / 3),
                  cv::Scalar(20, 200, 90), cv::FILLED);
    return bgr;
}

Bytes encoded(const cv::Mat& bgr, const std::string& ext) {
    Bytes out;
    cv::imencode(ext, bgr, out);
    return out;
}

cv::Mat as_bgr(const DecodedImage& image) {
    cv::Mat bgr(static_cast<int>(image.height), static_cast<int>(image.width), CV_8UC3);
    for (size_t i = 0; i < size_t{image.width} * image.height; ++i)
        for (int c = 0; c < 3; ++c) bgr.data[3 * i + c] = image.pixels[4 * i + 3 - c];
    return bgr;
}

// OpenCV's decoder is the independent reference: the program's answers
// depend on these pixels, so they must be the same to the bit.
void expect_same(const DecodedImage& ours, const cv::Mat& reference) {
    ASSERT_EQ(ours.width, static_cast<uint32_t>(reference.cols));
    ASSERT_EQ(ours.height, static_cast<uint32_t>(reference.rows));
    EXPECT_EQ(cv::norm(as_bgr(ours), reference, cv::NORM_INF), 0.0);
}

// A JPEG with an EXIF block holding only the orientation: the APP1 marker
// and length, "Exif", a little-endian TIFF header with its directory at 8,
// one entry (0x0112, SHORT, count 1) and no next directory.
Bytes with_orientation(const Bytes& jpeg, uint8_t orientation) {
    const std::string exif(
        "\xFF\xE1\x00\x22"
        "Exif\0\0"
        "II\x2A\x00\x08\x00\x00\x00"
        "\x01\x00"
        "\x12\x01\x03\x00\x01\x00\x00\x00",
        28);
    const uint8_t entry[8] = {orientation, 0, 0, 0, 0, 0, 0, 0};
    Bytes out(jpeg.size() + exif.size() + 8);
    std::copy(jpeg.begin(), jpeg.begin() + 2, out.begin());
    std::copy(exif.begin(), exif.end(), out.begin() + 2);
    std::copy(entry, entry + 8, out.begin() + 30);
    std::copy(jpeg.begin() + 2, jpeg.end(), out.begin() + 38);
    return out;
}

std::string refusal(const Bytes& bytes, const DecodeOptions& options = {}) {
    try {
        decode_image(bytes, options);
    } catch (const HostError& e) {
        return e.what();
    }
    return "";
}

TEST(ImageDecoding, PixelsAreOpenCvsForEveryFormat) {
    const cv::Mat image = scene(300, 200);
    for (const char* ext : {".jpg", ".png", ".tiff", ".bmp", ".ppm"}) {
        SCOPED_TRACE(ext);
        const Bytes bytes = encoded(image, ext);
        const DecodedImage ours = decode_image(bytes, {});
        expect_same(ours, cv::imdecode(bytes, cv::IMREAD_COLOR));
        EXPECT_FALSE(ours.reduced());
    }
}

TEST(ImageDecoding, ReducedJpegKeepsTheLongSideAndItsFullSize) {
    const Bytes bytes = encoded(scene(2100, 1203), ".jpg");
    const std::pair<uint32_t, int> cases[] = {{1000, cv::IMREAD_REDUCED_COLOR_2},
                                              {256, cv::IMREAD_REDUCED_COLOR_8}};
    for (const auto& [longSide, flag] : cases) {
        DecodeOptions options;
        options.reducedLongSide = longSide;
        const DecodedImage ours = decode_image(bytes, options);
        expect_same(ours, cv::imdecode(bytes, flag));
        EXPECT_EQ(ours.fullWidth, 2100u);
        EXPECT_EQ(ours.fullHeight, 1203u);
        EXPECT_GE(ours.width, longSide);
    }
}

TEST(ImageDecoding, EveryExifOrientationStandsUpright) {
    const Bytes plain = encoded(scene(120, 80), ".jpg");
    for (uint16_t o = 1; o <= 8; ++o) {
        SCOPED_TRACE(o);
        const Bytes bytes = with_orientation(plain, o);
        expect_same(decode_image(bytes, {}), cv::imdecode(bytes, cv::IMREAD_COLOR));
    }
    // Turned a quarter, a reduced decode reports the upright full size.
    DecodeOptions options;
    options.reducedLongSide = 500;
    const DecodedImage turned =
        decode_image(with_orientation(encoded(scene(2000, 1200), ".jpg"), 6), options);
    EXPECT_EQ(turned.fullWidth, 1200u);
    EXPECT_EQ(turned.fullHeight, 2000u);
    EXPECT_EQ(turned.width, 300u);  // a quarter of 1200
    EXPECT_EQ(turned.height, 500u);
}

TEST(ImageDecoding, WebpAndPngWrittenByTheHostReadBack) {
    const DecodedImage source = decode_image(encoded(scene(160, 90), ".png"), {});
    const Bytes png = encode_image(ImageFormat::Png, source.pixels.data(), 160, 90, 640);
    const DecodedImage back = decode_image(png, {});
    ASSERT_EQ(back.pixels.size(), source.pixels.size());
    EXPECT_TRUE(std::equal(back.pixels.data(), back.pixels.data() + back.pixels.size(),
                           source.pixels.data()));
    const DecodedImage webp =
        decode_image(encode_image(ImageFormat::Webp, source.pixels.data(), 160, 90, 640), {});
    ASSERT_EQ(webp.format, ImageFormat::Webp);
    ASSERT_EQ(webp.pixels.size(), source.pixels.size());
    // Lossy at quality 95: close on average, not equal.
    double sum = 0;
    for (size_t i = 0; i < webp.pixels.size(); i += 4)
        for (int c = 1; c < 4; ++c) sum += std::abs(webp.pixels[i + c] - source.pixels[i + c]);
    EXPECT_LT(sum / (160 * 90 * 3), 4.0);
}

// Headers that claim more pixels than the limit are refused before any
// pixel is decoded: these files are tiny.
TEST(ImageDecoding, SizeIsCheckedFromTheHeader) {
    const std::string over = " pixels, above the pixel limit of 100000000";
    Bytes jpeg = encoded(scene(64, 48), ".jpg");
    for (size_t p = 2; p + 9 < jpeg.size(); ++p) {
        if (jpeg[p] == 0xFF && jpeg[p + 1] == 0xC0) {  // the frame header: height, width
            jpeg[p + 5] = jpeg[p + 7] = 0xEA;
            jpeg[p + 6] = jpeg[p + 8] = 0x60;  // 60000 x 60000
            break;
        }
    }
    EXPECT_EQ(refusal(jpeg), "the image is 60000 x 60000" + over);
    Bytes png = encoded(scene(64, 48), ".png");
    png[16] = 0, png[17] = 0, png[18] = 0x7D, png[19] = 0;  // width 32000
    png[20] = 0, png[21] = 0, png[22] = 0x7D, png[23] = 0;
    // The header's checksum no longer matches either; the size is refused first.
    EXPECT_EQ(refusal(png), "the image is 32000 x 32000" + over);
    DecodeOptions lenient;
    lenient.lenient = true;
    EXPECT_EQ(refusal(png, lenient), "the image is 32000 x 32000" + over);
    const std::string pnm = "P6\n# comment\n40000 40000\n255\n";
    EXPECT_EQ(refusal(Bytes(pnm.begin(), pnm.end())), "the image is 40000 x 40000" + over);
    Bytes bmp = encoded(scene(8, 8), ".bmp");
    bmp[19] = bmp[23] = 0x9C;  // 40000 (0x9C40) a side
    bmp[18] = bmp[22] = 0x40;
    EXPECT_EQ(refusal(bmp), "the image is 40000 x 40000" + over);

    DecodeOptions small;
    small.maxPixels = 1000;
    EXPECT_EQ(refusal(encoded(scene(40, 30), ".tiff"), small),
              "the image is 40 x 30 pixels, above the pixel limit of 1000");
}

// Files whose headers promise more than they hold, or a format we do not
// read, are refused by what they are, before any large buffer is made.
TEST(ImageDecoding, HeadersThatOverpromiseAreRefusedByName) {
    EXPECT_EQ(refusal({'I', 'I', '+', 0, 8, 0, 0, 0, 16, 0, 0, 0}),
              "BigTIFF images are not supported (TIFF, JPEG, PNG, WebP, BMP and PNM are)");
    Bytes bmp = encoded(scene(8, 8), ".bmp");
    bmp[19] = bmp[23] = 0x27;  // 10000 (0x2710) a side, in a file of 246 bytes
    bmp[18] = bmp[22] = 0x10;
    EXPECT_EQ(refusal(bmp),
              "the BMP file is truncated (its header describes 10000 x 10000 pixels, 300000000 "
              "bytes, the file holds " +
                  std::to_string(bmp.size()) + ")");
    // A 16 x 16 picture in one tile of 4096 x 4096: the header, one
    // directory (width, height, 8-bit samples, no compression, RGB, three
    // samples, tile width, tile length, tile offset, tile size), no data.
    Bytes tiff = {'I', 'I', 42, 0, 8, 0, 0, 0, 10, 0};
    const uint16_t tags[][2] = {{256, 16}, {257, 16},   {258, 8},    {259, 1},   {262, 2},
                                {277, 3},  {322, 4096}, {323, 4096}, {324, 200}, {325, 48}};
    for (const auto& [tag, value] : tags) {
        const uint8_t entry[12] = {uint8_t(tag),   uint8_t(tag >> 8),   3, 0, 1, 0, 0, 0,
                                   uint8_t(value), uint8_t(value >> 8), 0, 0};
        tiff.insert(tiff.end(), entry, entry + 12);
    }
    tiff.resize(260, 0x80);
    EXPECT_EQ(refusal(tiff),
              "the TIFF file's tiles (4096 x 4096) are far larger than its picture (16 x 16)");
}

TEST(ImageDecoding, DamagedDataIsAnErrorUnlessLenient) {
    DecodeOptions lenient;
    lenient.lenient = true;
    const Bytes jpeg = encoded(scene(300, 200), ".jpg");
    // Cut in half: truncated, in its data or in its header, whatever the
    // codec calls it; with its end marker after the cut, the data stops
    // early inside a whole file, as a flipped bit makes it: damaged.
    Bytes cut(jpeg.begin(), jpeg.begin() + jpeg.size() / 2);
    EXPECT_EQ(refusal(cut).rfind("the JPEG file is truncated (", 0), 0u) << refusal(cut);
    EXPECT_EQ(decode_image(cut, lenient).width, 300u);
    EXPECT_EQ(refusal(Bytes(jpeg.begin(), jpeg.begin() + 40)),
              "the JPEG file is truncated (in its header)");
    cut.insert(cut.end(), {0xFF, 0xD9});
    EXPECT_EQ(refusal(cut).rfind("the JPEG data is damaged (", 0), 0u) << refusal(cut);

    const Bytes png = encoded(scene(300, 200), ".png");
    EXPECT_EQ(refusal(Bytes(png.begin(), png.begin() + png.size() / 2)),
              "the PNG file is truncated");
    Bytes badCrc = png;
    badCrc[png.size() - 20] ^= 0x01;  // inside the last image data chunk
    EXPECT_EQ(refusal(badCrc).rfind("the PNG data is damaged (", 0), 0u) << refusal(badCrc);
    EXPECT_EQ(decode_image(badCrc, lenient).height, 200u);
    Bytes badTail = png;
    badTail[png.size() - 14] ^= 0x01;  // the last data chunk's checksum, after the last row
    EXPECT_EQ(refusal(badTail), "the PNG data is damaged (invalid chunk checksum)");
    EXPECT_EQ(decode_image(badTail, lenient).height, 200u);

    const DecodedImage source = decode_image(png, {});
    const Bytes webp = encode_image(ImageFormat::Webp, source.pixels.data(), 300, 200, 1200);
    const Bytes webpCut(webp.begin(), webp.begin() + webp.size() * 2 / 3);
    EXPECT_EQ(refusal(webpCut), "the WebP data is damaged or truncated");
    EXPECT_EQ(decode_image(webpCut, lenient).width, 300u);
}

}  // namespace
}  // namespace smartCrop::host
