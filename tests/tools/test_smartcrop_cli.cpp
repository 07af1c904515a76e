// The smartcrop program end to end, on files written by the test.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Outcome {
    int status;
    std::string out;
};

// Runs a shell command line; standard error goes to `errFile` when given.
Outcome run(const std::string& command) {
    Outcome r{-1, ""};
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return r;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) r.out.append(buffer, n);
    const int raw = pclose(pipe);
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    return r;
}

class SmartcropCli : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() / ("smartcrop-cli-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        cv::Mat image(240, 360, CV_8UC3);
        for (int y = 0; y < image.rows; ++y)
            for (int x = 0; x < image.cols; ++x)
                image.at<cv::Vec3b>(y, x) = cv::Vec3b(170, 100 + x / 4, 60 + y / 3);
        cv::circle(image, cv::Point(250, 110), 45, cv::Scalar(40, 90, 210), cv::FILLED);
        png = (dir / "photo.png").string();
        jpeg = (dir / "photo.jpg").string();
        cv::imwrite(png, image);
        cv::imwrite(jpeg, image);
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string cli(const std::string& args) const {
        return std::string(SMARTCROP_CLI) + " " + args + " 2>" + (dir / "err.txt").string();
    }
    std::string err() const {
        std::ifstream in(dir / "err.txt");
        return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    // A Python expression over the parsed JSON `d`, printed.
    Outcome json(const std::string& args, const std::string& expression) const {
        return run(cli("--format json " + args) +
                   " | python3 -c 'import json,sys; d=json.load(sys.stdin); print(" + expression +
                   ")'");
    }

    fs::path dir;
    std::string png, jpeg;
};

TEST_F(SmartcropCli, JsonHasTheDocumentedFields) {
    const Outcome r = json(png + " " + jpeg,
                           "len(d), d[0][\"width\"], d[0][\"height\"], len(d[0][\"suggestions\"]), "
                           "sorted(d[1][\"suggestions\"][0].keys())");
    ASSERT_EQ(r.status, 0) << err();
    EXPECT_EQ(r.out,
              "2 360 240 5 ['aestheticScore', 'borderScore', 'bottom', 'centreShare', "
              "'coverageScore', 'height', "
              "'left', 'peakShare', 'rank', 'right', 'roiScore', 'score', 'top', 'wellCovered', "
              "'width']\n");
}

TEST_F(SmartcropCli, FacesAreReportedOnlyWhenAskedFor) {
    const std::string portrait = SMARTCROP_SOURCE_DIR "/tests/data/grace_hopper.jpg";
    Outcome r = json("--faces --models " SMARTCROP_SOURCE_DIR "/data/ovex3 " + portrait + " " + png,
                     "[len(x[\"faces\"]) for x in d], "
                     "[(f[\"left\"] < 180 < f[\"right\"], f[\"top\"] < 150 < f[\"bottom\"]) "
                     "for f in d[0][\"faces\"]]");
    ASSERT_EQ(r.status, 0) << err();
    EXPECT_EQ(r.out, "[1, 0] [(True, True)]\n");  // the face holds the point between the eyes
    r = json(portrait, "\"faces\" in d[0]");
    EXPECT_EQ(r.out, "False\n");
}

TEST_F(SmartcropCli, SizeRoiAndWrittenCrops) {
    Outcome r = json("--size 120x80 " + png,
                     "set((s[\"width\"], s[\"height\"]) for s in d[0][\"suggestions\"])");
    ASSERT_EQ(r.status, 0) << err();
    EXPECT_EQ(r.out, "{(120, 80)}\n");

    r = json("--count 20 --roi required:30,40,90,120 " + jpeg,
             "all(s[\"left\"] <= 30 and s[\"top\"] <= 40 and s[\"right\"] >= 90 and s[\"bottom\"] "
             ">= 120 "
             "for s in d[0][\"suggestions\"]), len(d[0][\"suggestions\"]) > 0");
    ASSERT_EQ(r.status, 0) << err();
    EXPECT_EQ(r.out, "True True\n");

    const fs::path crops = dir / "crops";
    r = json("--aspect 1 --count 3 --write-crops " + crops.string() + " " + png,
             "[(s[\"width\"], s[\"height\"]) for s in d[0][\"suggestions\"]]");
    ASSERT_EQ(r.status, 0) << err();
    for (int k = 1; k <= 3; ++k) {
        const cv::Mat written =
            cv::imread((crops / ("photo-" + std::to_string(k) + ".png")).string());
        ASSERT_FALSE(written.empty()) << k;
        EXPECT_NE(r.out.find("(" + std::to_string(written.cols) + ", " +
                             std::to_string(written.rows) + ")"),
                  std::string::npos);
        EXPECT_EQ(written.cols, written.rows);
    }
    const fs::path preview = dir / "preview.png";
    ASSERT_EQ(run(cli("--format table --preview " + preview.string() + " " + png)).status, 0);
    EXPECT_FALSE(cv::imread(preview.string()).empty());
}

TEST_F(SmartcropCli, BadInputGetsClearErrors) {
    const std::string missing = (dir / "missing.png").string();
    const std::string empty = (dir / "empty.jpg").string();
    const std::string truncated = (dir / "truncated.jpg").string();
    const std::string text = (dir / "text.png").string();
    const std::string thin = (dir / "thin.png").string();
    std::ofstream(empty).close();
    {
        std::ifstream in(jpeg, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    }
    std::ofstream(text) << "not an image\n";
    cv::imwrite(thin, cv::Mat(5000, 1, CV_8UC3, cv::Scalar(9, 99, 199)));

    const std::pair<std::string, std::string> cases[] = {
        {missing, "cannot open the file"},
        {empty, "the file is empty"},
        {truncated, "the JPEG file is truncated"},
        {text, "cannot decode the image (unknown or damaged format)"},
        {thin,
         "code 1: SmartCrop: the image has no analysis: it is too thin (aspect ratio beyond "
         "1:1280)"},
    };
    for (const auto& [file, message] : cases) {
        const Outcome r = run(cli("--format table " + file + " " + png));
        EXPECT_EQ(r.status, 1) << file;
        EXPECT_NE(err().find("smartcrop: " + file + ": " + message + "\n"), std::string::npos)
            << err();
        EXPECT_NE(r.out.find("photo.png"), std::string::npos);  // the good image is still answered
    }
    for (const std::string& args :
         {"--bogus " + png, std::string(), "--size 12 " + png, "--roi fancy:1,2,3,4 " + png,
          "--mode 9 " + png, "--aspect 0:1 " + png}) {
        const Outcome r = run(cli(args));
        EXPECT_EQ(r.status, 2) << args;
        EXPECT_NE(err().find("usage: smartcrop [options] IMAGE..."), std::string::npos) << args;
    }
    EXPECT_NE(err().find("smartcrop: bad aspect ratio: 0:1"), std::string::npos);
}

}  // namespace
