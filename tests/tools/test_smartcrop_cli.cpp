// The smartcrop program end to end, on files written by the test.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <sstream>
#include <string>

#include "scratch_folder.h"

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
                   " | python3 -c 'import json,os,sys; d=json.load(sys.stdin); print(" +
                   expression + ")'");
    }

    const test::ScratchFolder dir{"cli"};
    std::string png, jpeg;
};

// By default the host layer answers: the best crop of each of five ratios
// and a focal point; --design-defaults gives the library's own ranking.
TEST_F(SmartcropCli, JsonHasTheDocumentedFields) {
    const Outcome r = json(png + " " + jpeg,
                           "len(d), d[0][\"width\"], d[0][\"height\"], len(d[0][\"suggestions\"]), "
                           "len(set(round(s[\"width\"] / s[\"height\"], 1) for s in "
                           "d[0][\"suggestions\"])), sorted(d[0][\"focus\"].keys()), "
                           "sorted(d[1][\"suggestions\"][0].keys())");
    ASSERT_EQ(r.status, 0) << err();
    EXPECT_EQ(r.out,
              "2 360 240 5 5 ['x', 'y'] ['aestheticScore', 'aspect', 'borderScore', 'bottom', "
              "'centreShare', "
              "'coverageScore', 'height', "
              "'left', 'overlap', 'peakShare', 'rank', 'right', 'roiScore', 'score', 'top', "
              "'wellCovered', 'width']\n");
    // Each suggestion names the ratio it was made for.
    const Outcome named = json("--aspect 16:9 --aspect 1 --count 6 " + png,
                               "all(s[\"aspect\"] in (1.77778, 1) and abs(s[\"width\"] / "
                               "s[\"height\"] - s[\"aspect\"]) < 0.02 for s in "
                               "d[0][\"suggestions\"])");
    EXPECT_EQ(named.out, "True\n") << err();
    // Asked per ratio: one list per ratio, in the request's order, ranks
    // counted in each; nothing else in the record changes.
    const Outcome grouped =
        json("--per-aspect --aspect 16:9 --aspect 1 --count 2 " + png,
             "[(g[\"aspect\"], [(s[\"rank\"], s[\"aspect\"]) for s in g[\"suggestions\"]]) "
             "for g in d[0][\"groups\"]], \"suggestions\" in d[0], sorted(d[0])");
    EXPECT_EQ(grouped.out,
              "[(1.77778, [(1, 1.77778), (2, 1.77778)]), (1, [(1, 1), (2, 1)])] False "
              "['file', 'focus', 'groups', 'height', 'width']\n")
        << err();
    const Outcome plain = json("--design-defaults " + png,
                               "len(set(round(s[\"width\"] / s[\"height\"], 1) for s in "
                               "d[0][\"suggestions\"])) < 5");
    EXPECT_EQ(plain.out, "True\n") << err();
}

// OpenCV's codecs (and the hundred libraries they bring) are loaded only
// when a TIFF, BMP or PNM file is met, and then they read it.
TEST_F(SmartcropCli, RareFormatsLoadTheirReaderWhenMet) {
    const std::string bmp = (dir / "photo.bmp").string();
    cv::imwrite(bmp, cv::imread(png));
    const std::string count = " 2>&1 >/dev/null | grep -c 'file=libopencv_imgcodecs'";
    EXPECT_EQ(
        run("LD_DEBUG=files " + std::string(SMARTCROP_CLI) + " --format json " + jpeg + count).out,
        "0\n");
    EXPECT_NE(
        run("LD_DEBUG=files " + std::string(SMARTCROP_CLI) + " --format json " + bmp + count).out,
        "0\n");
    const Outcome r = json(bmp, "d[0][\"width\"], d[0][\"height\"]");
    EXPECT_EQ(r.out, "360 240\n") << err();
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

// A large JPEG is analysed from its reduced decode whether or not crops are
// written; the crops are cut from the full decode.
TEST_F(SmartcropCli, WrittenCropsDoNotChangeTheAnswer) {
    const std::string large = SMARTCROP_SOURCE_DIR "/tests/data/hopper_large.jpg";
    const Outcome plain = run(cli("--format json --aspect 1 --count 2 " + large));
    ASSERT_EQ(plain.status, 0) << err();
    const fs::path crops = dir / "large";
    const Outcome written = run(
        cli("--format json --aspect 1 --count 2 --write-crops " + crops.string() + " " + large));
    ASSERT_EQ(written.status, 0) << err();
    EXPECT_EQ(written.out, plain.out);
    const cv::Mat full = cv::imread(large);
    const Outcome boxes = json("--aspect 1 --count 2 " + large,
                               "\" \".join(\"%d %d %d %d\" % (s[\"left\"], s[\"top\"], "
                               "s[\"width\"], s[\"height\"]) for s in d[0][\"suggestions\"])");
    std::istringstream in(boxes.out);
    int x, y, w, h, k = 0;
    while (in >> x >> y >> w >> h) {
        const cv::Mat cut =
            cv::imread((crops / ("hopper_large-" + std::to_string(++k) + ".jpg")).string());
        ASSERT_EQ(cut.cols, w) << k;
        ASSERT_EQ(cut.rows, h) << k;
        // The same pixels, up to the JPEG written.
        EXPECT_LT(cv::norm(cut, full(cv::Rect(x, y, w, h)), cv::NORM_L1) / cut.total() / 3, 3.0)
            << k;
    }
    EXPECT_EQ(k, 2);
}

TEST_F(SmartcropCli, BadInputGetsClearErrors) {
    const std::string missing = (dir / "missing.png").string();
    const std::string empty = (dir / "empty.jpg").string();
    const std::string truncated = (dir / "truncated.jpg").string();
    const std::string text = (dir / "text.png").string();
    const std::string thin = (dir / "thin.png").string();
    const std::string gif = (dir / "anim.gif").string();
    std::ofstream(empty).close();
    {
        std::ifstream in(jpeg, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::ofstream(truncated, std::ios::binary) << bytes.substr(0, bytes.size() / 2);
    }
    std::ofstream(text) << "not an image\n";
    std::ofstream(gif) << "GIF89a\x01\x00\x01\x00";
    cv::imwrite(thin, cv::Mat(2000, 4, CV_8UC3, cv::Scalar(9, 99, 199)));

    // (arguments, message); a run of a bad file also holds a good image, still answered.
    const std::pair<std::string, std::string> cases[] = {
        {missing, missing + ": cannot open the file"},
        {dir.path().string(), dir.path().string() + ": this is a folder, not a file"},
        {empty, empty + ": the file is empty"},
        {truncated, truncated + ": the JPEG file is truncated ("},
        {text, text + ": not an image file of a supported format"},
        {gif, gif + ": GIF images are not supported"},
        {thin, thin + ": the image is too thin to crop: 4 x 2000 pixels"},
        {"--max-pixels 1000 " + jpeg, jpeg + ": the image is 360 x 240 pixels, above the pixel "
                                             "limit of 1000"},
        {"--size 400x100 " + jpeg,
         jpeg + ": the crop size 400 x 100 is larger than the image (360 x 240)"},
        {"--roi required:300,10,400,20 " + jpeg,
         jpeg + ": the required rectangle 300,10,400,20 does not lie inside the image"},
        {"--aspect 100000:1 " + jpeg,
         jpeg + ": no crop of the requested aspect ratios and scales fits the image (360 x 240)"},
        {"--aspect 1 --roi required:0,0,300,200 " + jpeg,
         jpeg + ": no crop of the requested aspect ratios and scales fits the image (360 x 240) "
                "together with its required and forbidden rectangles"},
    };
    for (const auto& [args, message] : cases) {
        const Outcome r = run(cli("--format table " + args + " " + png));
        EXPECT_EQ(r.status, 1) << args;
        EXPECT_NE(err().find("smartcrop: " + message), std::string::npos) << err();
        if (args[0] != '-') {
            EXPECT_NE(r.out.find("photo.png"), std::string::npos) << args;
        }
    }
    for (const std::string& args :
         {"--bogus " + png, std::string(), "--size 12 " + png, "--roi fancy:1,2,3,4 " + png,
          "--mode 9 " + png, "--count 0 " + png, "--scales 1.5 " + png, "--preview x.bmp " + png,
          "--aspect 0:1 " + png}) {
        const Outcome r = run(cli(args));
        EXPECT_EQ(r.status, 2) << args;
        // One line, and where to look.
        EXPECT_EQ(err().find('\n'), err().size() - 1) << err();
        EXPECT_NE(err().find(" (smartcrop --help lists the options)\n"), std::string::npos) << args;
    }
    EXPECT_EQ(err(), "smartcrop: bad aspect ratio: 0:1 (smartcrop --help lists the options)\n");
    Outcome help = run(cli("--help"));
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind("usage: smartcrop [options] IMAGE...\n", 0), 0u) << help.out;
    EXPECT_EQ(run(cli("--version")).out, "smartcrop 0.1.0\n");
}

// Stopped by SIGTERM halfway through a batch: the images finished are
// reported as valid JSON, each with all its crops written, none with part
// of them, no temporary is left, and the exit status says which signal.
TEST_F(SmartcropCli, ASignalStopsTheBatchCleanly) {
    std::string many;
    for (int k = 0; k < 400; ++k) {
        const fs::path copy = dir / ("copy" + std::to_string(k) + ".png");
        fs::copy_file(png, copy);
        many += " " + copy.string();
    }
    const fs::path crops = dir / "crops", json = dir / "out.json";
    // The signal comes once the first image's crops have landed (at most a
    // minute's wait), so that the batch is surely half done, at any speed.
    const Outcome status =
        run("sh -c '" + cli("--format json --count 2 --write-crops " + crops.string() + many) +
            " >" + json.string() + " & pid=$!; n=0; while [ $(ls " + crops.string() +
            " 2>/dev/null | wc -l) -lt 2 ] && [ $n -lt 6000 ]; do sleep 0.01; n=$((n+1)); done; "
            "kill -TERM $pid; wait $pid; echo $?'");
    EXPECT_EQ(status.out, "143\n") << err();
    const Outcome r =
        run("python3 -c 'import json,sys; d=json.load(open(sys.argv[1])); "
            "print(len(d), all(\"error\" not in x for x in d))' " +
            json.string());
    ASSERT_EQ(r.out.substr(r.out.find(' ')), " True\n") << err();
    const int records = std::stoi(r.out);
    EXPECT_GT(records, 0);
    EXPECT_LT(records, 400);
    EXPECT_NE(err().find("smartcrop: stopped by a signal after " + std::to_string(records) +
                         " of 400 images"),
              std::string::npos)
        << err();
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(crops)) {
        EXPECT_NE(entry.path().filename().string()[0], '.') << entry.path();
        ++files;
    }
    EXPECT_EQ(files, 2u * static_cast<size_t>(records));
}

// JSON lines: a line per image, in the order given, each the record the
// JSON list holds, whatever thread finished first.
TEST_F(SmartcropCli, JsonLinesHoldTheRecordsInOrder) {
    const std::string files = png + " " + (dir / "missing.png").string() + " " + jpeg;
    const Outcome lines = run(cli("--format jsonl -j 2 " + files) +
                              " | python3 -c 'import json,sys; print(json.dumps([json.loads(l) "
                              "for l in sys.stdin]))'");
    const Outcome list =
        run(cli("--format json " + files) +
            " | python3 -c 'import json,sys; print(json.dumps(json.load(sys.stdin)))'");
    EXPECT_EQ(lines.out, list.out);
    EXPECT_NE(lines.out.find("missing.png\", \"error\""), std::string::npos) << lines.out;
}

// Names are bytes: one that is not UTF-8 comes back in JSON as Python's
// surrogateescape reads it, and one that starts with a dash is an image
// after "--".
TEST_F(SmartcropCli, AnyFileNameComesBackAsItWas) {
    const fs::path odd = dir / "--we\xffird.png";
    fs::copy_file(png, odd);
    const Outcome r = json("-- '" + odd.string() + "'",
                           "os.fsencode(d[0][\"file\"]).endswith(b\"/--we\\xffird.png\")");
    EXPECT_EQ(r.out, "True\n") << err();
}

// A lone candidate's rank score in the library's ranking is not a number:
// null in JSON, "-" in the table.
TEST_F(SmartcropCli, ScoresThatAreNotNumbersAreShownAsSuch) {
    Outcome r = json("--design-defaults --size 360x240 " + png,
                     "[s[\"score\"] for s in d[0][\"suggestions\"]]");
    ASSERT_EQ(r.status, 0) << err();
    EXPECT_EQ(r.out, "[None]\n");
    r = run(cli("--design-defaults --format table --size 360x240 " + png));
    EXPECT_NE(r.out.find("     -  "), std::string::npos) << r.out;
}

// Crops never replace what is there; inputs of one name
// from two folders get names of their own; a failed output exits 1.
TEST_F(SmartcropCli, WrittenFilesNeverReplaceWhatIsThere) {
    const fs::path crops = dir / "crops", other = dir / "other";
    fs::create_directories(crops);
    fs::create_directories(other);
    cv::imwrite((other / "photo.png").string(),
                cv::Mat(200, 300, CV_8UC3, cv::Scalar(10, 200, 90)));
    std::ofstream(crops / "photo-2.png") << "theirs";
    const std::string both = png + " " + (other / "photo.png").string();
    Outcome r =
        run(cli("--format json --count 2 -j 2 --write-crops " + crops.string() + " " + both));
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(err().find("smartcrop: " + png + ": " + (crops / "photo-2.png").string() +
                         " already exists (--overwrite replaces it)"),
              std::string::npos)
        << err();
    EXPECT_FALSE(fs::exists(crops / "photo-1.png"));  // all of an image's crops or none
    EXPECT_TRUE(fs::exists(crops / "photo~2-1.png"));
    r = run(
        cli("--format json --count 2 --overwrite --write-crops " + crops.string() + " " + both));
    EXPECT_EQ(r.status, 0) << err();
    EXPECT_FALSE(cv::imread((crops / "photo-2.png").string()).empty());
    EXPECT_EQ(cv::imread((crops / "photo~2-1.png").string()).at<cv::Vec3b>(0, 0),
              cv::Vec3b(10, 200, 90));

    EXPECT_EQ(run(cli("--format json " + png + " >/dev/full")).status, 1);
    EXPECT_NE(err().find("smartcrop: cannot write the output: "), std::string::npos);
}

// The detector comes from the installed (here: the build tree's) copy,
// whatever the working folder holds; faces are reported only when asked
// for; a bad detector is an error up front.
TEST_F(SmartcropCli, FaceDetectorIsCheckedAndFoundWhereverRun) {
    const std::string portrait = SMARTCROP_SOURCE_DIR "/tests/data/grace_hopper.jpg";
    std::ofstream(dir / "mtcnn-onet") << "random bytes where a network would be";
    Outcome r =
        run("cd " + dir.path().string() + " && " +
            cli("--faces --format json " + portrait + " " + png) +
            " | python3 -c 'import json,sys; d=json.load(sys.stdin); print([len(x[\"faces\"]) "
            "for x in d], [(f[\"left\"] < 180 < f[\"right\"], f[\"top\"] < 150 < "
            "f[\"bottom\"]) for f in d[0][\"faces\"]])'");
    EXPECT_EQ(r.out, "[1, 0] [(True, True)]\n")
        << err();  // the face holds the point between the eyes
    EXPECT_EQ(json(portrait, "\"faces\" in d[0]").out, "False\n");

    const fs::path models = dir / "models";
    fs::create_directories(models);
    for (const char* name : {"mtcnn-pnet", "mtcnn-rnet"})
        fs::copy_file(fs::path(SMARTCROP_SOURCE_DIR "/data") / name, models / name);
    std::ofstream(models / "mtcnn-onet") << "damaged";
    std::ofstream(models / "good") << "mtcnn-pnet 12 0.6 mtcnn-rnet 24 0.7 mtcnn-onet 48 0.9\n";
    std::ofstream(models / "escapes") << "mtcnn-pnet 12 0.6 /etc/passwd 24 0.7 ../x 48 0.9\n";
    std::ofstream(models / "short") << "mtcnn-pnet 12 0.6\n";
    const std::string cfg = models.string() + "/";
    const std::pair<std::string, std::string> cases[] = {
        {cfg + "none", "the face detector configuration " + cfg + "none is not a readable file"},
        {cfg + "escapes", "the face detector configuration " + cfg +
                              "escapes names /etc/passwd, which is /etc/passwd, outside the "
                              "configuration's folder"},
        {cfg + "short", "lists 1 networks; a detector has 3 to 5"},
        {cfg + "good", "the networks do not load: SmartCrop: Error detecting faces"},
    };
    for (const auto& [config, message] : cases) {
        r = run(cli("--faces --models " + config + " " + png));
        EXPECT_EQ(r.status, 1) << config;
        EXPECT_NE(err().find(message), std::string::npos) << err();
        EXPECT_EQ(r.out, "") << "no image is answered with a broken detector";
    }
}

}  // namespace
