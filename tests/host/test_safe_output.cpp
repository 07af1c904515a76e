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

// An input of the run is never an output, --overwrite or not, under any of
// its names; a folder is no file to write; a name at the file system's
// limit still gets its temporary.
TEST_F(SafeOutput, InputsFoldersAndLongNames) {
    std::ofstream(dir / "in.jpg") << "photo";
    fs::create_hard_link(dir / "in.jpg", dir / "alias.jpg");
    const ProtectedFiles inputs({(dir / "in.jpg").string(), (dir / "gone.jpg").string()});
    for (const char* name : {"in.jpg", "alias.jpg"}) {
        const std::string path = (dir / name).string();
        try {
            write_file_safely(path, bytes, true, &inputs);
            ADD_FAILURE() << name;
        } catch (const HostError& e) {
            EXPECT_EQ(std::string(e.what()),
                      "cannot write " + path + ": it is an input of this run");
        }
    }
    EXPECT_EQ(read(dir / "in.jpg"), "photo");
    fs::create_directory(dir / "folder.png");
    try {
        write_file_safely((dir / "folder.png").string(), bytes, true);
        ADD_FAILURE();
    } catch (const HostError& e) {
        EXPECT_EQ(std::string(e.what()),
                  "cannot write " + (dir / "folder.png").string() + ": it is a folder");
    }
    const std::string longest(251, 'n');
    write_file_safely((dir / (longest + ".png")).string(), bytes, false, &inputs);
    EXPECT_EQ(read(dir / (longest + ".png")), "new");
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
