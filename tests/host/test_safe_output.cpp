// Writing files without losing what was there: no replacing, no following
// links, a group all or none, names unique per run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/safe_output.h"
#include "scratch_folder.h"

namespace smartCrop::host {
namespace {

namespace fs = std::filesystem;

std::string read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class SafeOutput : public ::testing::Test {
protected:
    std::vector<std::string> listing() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir))
            names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    const test::ScratchFolder dir{"output"};
    const std::vector<uint8_t> bytes{'n', 'e', 'w'};
};

TEST_F(SafeOutput, ExistingFilesAndLinksAreNeverWrittenThrough) {
    std::ofstream(dir / "kept.jpg") << "old";
    std::ofstream(dir / "victim") << "secret";
    fs::create_symlink(dir / "victim", dir / "link.jpg");
    EXPECT_THROW(write_file_safely((dir / "kept.jpg").string(), bytes, false), ExistsError);
    EXPECT_THROW(write_file_safely((dir / "link.jpg").string(), bytes, false), ExistsError);
    EXPECT_EQ(read(dir / "kept.jpg"), "old");
    // Replacing a link replaces the link, not the file behind it.
    write_file_safely((dir / "link.jpg").string(), bytes, true);
    write_file_safely((dir / "kept.jpg").string(), bytes, true);
    EXPECT_FALSE(fs::is_symlink(dir / "link.jpg"));
    EXPECT_EQ(read(dir / "link.jpg"), "new");
    EXPECT_EQ(read(dir / "kept.jpg"), "new");
    EXPECT_EQ(read(dir / "victim"), "secret");
    EXPECT_EQ(listing(), (std::vector<std::string>{"kept.jpg", "link.jpg", "victim"}));
}

TEST_F(SafeOutput, AGroupLandsWholeOrNotAtAll) {
    {
        OutputGroup group(false);
        group.stage((dir / "a-1.png").string(), bytes);
        group.stage((dir / "a-2.png").string(), bytes);
        // Appears between staging and committing: the group must back out.
        std::ofstream(dir / "a-2.png") << "theirs";
        EXPECT_THROW(group.commit(), ExistsError);
    }
    EXPECT_EQ(listing(), std::vector<std::string>{"a-2.png"});  // no temporaries, no a-1
    EXPECT_EQ(read(dir / "a-2.png"), "theirs");
    {
        OutputGroup group(false);
        group.stage((dir / "b-1.png").string(), bytes);
    }  // never committed: nothing left
    EXPECT_EQ(listing(), std::vector<std::string>{"a-2.png"});
    EXPECT_THROW(write_file_safely((dir / "missing" / "x.png").string(), bytes, false), HostError);
}

TEST(UniqueStems, RepeatedNamesAreNumberedInOrder) {
    EXPECT_EQ(unique_stems({"a/p.jpg", "b/p.png", "p~2.jpg", "q.tif", "c/p.jpg"}),
              (std::vector<std::string>{"p", "p~2", "p~2~2", "q", "p~3"}));
}

}  // namespace
}  // namespace smartCrop::host
