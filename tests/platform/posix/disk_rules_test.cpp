#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "tests/platform/disk.h"

// What only a disk that knows case, links and pipes can show.

namespace {

using namespace platform;
using testing::ElementsAre;

constexpr OpenOptions for_writing{.access = Access::WRITE};
constexpr OpenOptions for_creating{.access = Access::WRITE, .disposition = Disposition::CREATE_ALWAYS};

class DiskRules : public disk::DiskTest {};

std::string spelled(const char* path) {
    char out[path_buffer_size];
    return resolve_case(path, out) ? out : "";
}

std::vector<std::string> list(const char* path) {
    DirectoryListing listing;
    std::vector<std::string> names;
    if (!list_directory({path}, listing)) return names;
    for (const DirectoryItem& item : listing.items()) names.push_back(item.name);
    return names;
}

TEST_F(DiskRules, PreferTheExactThenTheLowerCaseThenTheSmallestSpelling) {
    for (const char* name : {"NAME", "Name", "nAME"}) disk::put(name, "");
    EXPECT_EQ(spelled("Name"), "Name");
    EXPECT_EQ(spelled("name"), "NAME") << "the smallest by bytes";
    disk::put("name", "");
    EXPECT_EQ(spelled("nAMe"), "name");
    EXPECT_EQ(spelled("nAME"), "nAME");
    EXPECT_THAT(list("."), ElementsAre("NAME", "Name", "nAME", "name"));

    std::filesystem::create_directory("DIR");
    std::filesystem::create_directory("dir");
    disk::put("DIR/file", "");
    EXPECT_FALSE(get_attributes("dir/file").has_value()) << "the exact directory wins, whatever it holds";
    EXPECT_FALSE(get_attributes("Dir/file").has_value());
    EXPECT_TRUE(get_attributes("DIR/FILE").has_value());
}

TEST_F(DiskRules, NeverWaitForPipesAndOpenNoOtherThanRegularFiles) {
    ASSERT_EQ(::mkfifo("pipe", 0666), 0);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "socket"};
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    for (const char* path : {"pipe", "PIPE", "socket", "/dev/null", "/dev/tty"}) {
        SCOPED_TRACE(path);
        for (const OpenOptions& options : {OpenOptions{}, for_writing, for_creating}) {
            EXPECT_FALSE(File::open(path, options).valid());
            const bool may_have_no_terminal = std::strcmp(path, "/dev/tty") == 0;
            EXPECT_TRUE(may_have_no_terminal || last_error().failure == Failure::NOT_REGULAR);
        }
        EXPECT_FALSE(get_attributes(path).has_value());
        EXPECT_FALSE(set_read_only(path, true));
        EXPECT_FALSE(remove_file(path));
    }
    disk::put("file", "");
    EXPECT_FALSE(rename_path("file", "pipe"));
    EXPECT_THAT(list("."), ElementsAre("file"));
    ::close(listener);
}

TEST_F(DiskRules, FollowLinksAndRemoveThemAlone) {
    std::filesystem::create_directory("folder");
    disk::put("folder/inner", "i");
    disk::put("file", "content");
    std::filesystem::create_symlink("folder", "to_folder");
    std::filesystem::create_symlink("file", "to_file");
    std::filesystem::create_symlink("nowhere", "broken");
    disk::put("back\\slash", "");
    DirectoryListing listing;
    ASSERT_TRUE(list_directory({"."}, listing));
    ASSERT_EQ(listing.items().size(), 4u) << "neither the broken link nor the backslash";
    EXPECT_THAT(list("."), ElementsAre("file", "folder", "to_file", "to_folder"));
    EXPECT_TRUE(listing.items()[3].is_link && listing.items()[3].is_directory);
    EXPECT_TRUE(listing.items()[2].is_link && !listing.items()[2].is_directory);
    EXPECT_FALSE(listing.items()[1].is_link);

    DirectoryId folder;
    DirectoryId behind_link;
    ASSERT_TRUE(get_directory_id("folder", folder) && get_directory_id("TO_FOLDER", behind_link));
    EXPECT_EQ(folder, behind_link);
    EXPECT_TRUE(is_link("to_folder") && is_link("To_Folder/") && is_link("to_file") && !is_link("folder"));
    EXPECT_FALSE(File::open("broken", for_creating).valid()) << "a link must not make a file elsewhere";
    {
        const File open = File::open("to_file", {});
        ASSERT_TRUE(open.valid());
        EXPECT_FALSE(remove_file("file")) << "open under another name";
        EXPECT_TRUE(remove_file("to_file")) << "the link itself is not open";
    }
    EXPECT_FALSE(remove_file("folder"));
    EXPECT_TRUE(remove_directory("to_folder/"));
    EXPECT_TRUE(remove_file("broken"));
    EXPECT_THAT(list("."), ElementsAre("file", "folder"));
    EXPECT_EQ(disk::get("folder/inner"), "i");
    EXPECT_EQ(disk::get("file"), "content");
}

TEST_F(DiskRules, RemoveATreeAndNothingThatItsLinksLeadTo) {
    disk::put("outside", "content");
    for (const char* target : {"outside", ".", "nowhere"}) {
        std::filesystem::create_directories("tree/sub");
        disk::put("tree/sub/file", "");
        std::filesystem::create_symlink(std::filesystem::absolute(target), "tree/sub/link");
        std::filesystem::create_symlink("sub", "tree/beside");
        TreeRemoval removal;
        EXPECT_TRUE(remove_tree("TREE/", removal)) << removal.left;
        EXPECT_THAT(list("."), ElementsAre("outside")) << target;
    }
    std::filesystem::create_directories("folder/inner");
    std::filesystem::create_symlink("folder", "link");
    TreeRemoval removal;
    EXPECT_TRUE(remove_tree("link", removal)) << "itself a link";
    EXPECT_TRUE(remove_tree("folder", removal));
    EXPECT_FALSE(remove_tree("folder", removal));
    EXPECT_EQ(last_error().failure, Failure::NOT_FOUND);
    EXPECT_EQ(removal.left, "folder");
}

TEST_F(DiskRules, NameWhatStaysOfATreeAndRemoveTheRest) {
    std::filesystem::create_directories("tree/b");
    for (const char* name : {"tree/a", "tree/b/open", "tree/b/other", "tree/kept", "tree/z"}) disk::put(name, "");
    const File open = File::open("tree/b/open", {});
    std::vector<std::string> gone;
    TreeRemoval removal;
    removal.keeps = [](const DirectoryItem& item) { return std::string(item.name) == "kept"; };
    removal.removed = [&](const char* path, const DirectoryItem&) { gone.emplace_back(path); };
    EXPECT_FALSE(remove_tree("tree", removal));
    EXPECT_EQ(last_error().failure, Failure::IN_USE);
    EXPECT_EQ(removal.left, "tree/b/open");
    EXPECT_THAT(gone, ElementsAre("tree/a", "tree/b/other", "tree/z"));
    EXPECT_THAT(list("tree"), ElementsAre("b", "kept"));
}

// A name is held, absent, or the disk does not tell; and what it did not tell once is asked again.
TEST_F(DiskRules, TellAnAbsentNameFromOneThatCouldNotBeLookedFor) {
    std::filesystem::create_directory("Folder");
    disk::put("Folder/File", "");
    for (const Failure failure : {Failure::IO, Failure::OUT_OF_MEMORY, Failure::TOO_MANY_FILES}) {
        std::filesystem::rename("Folder", "folder");  // nothing remembered of it is good any more
        std::filesystem::rename("folder", "Folder");
        inject_fault(FaultPoint::LIST, 1, failure, true);
        for (const char* path : {"FOLDER/file", "Folder/FILE", "Folder/missing"}) {
            EXPECT_FALSE(get_attributes(path).has_value());
            EXPECT_EQ(last_error().failure, failure) << path;
            EXPECT_FALSE(File::open(path, for_creating).valid());
            EXPECT_EQ(last_error().failure, failure) << path;
        }
        clear_faults();
        EXPECT_TRUE(get_attributes("FOLDER/file").has_value());
        EXPECT_FALSE(get_attributes("folder/missing").has_value());
        EXPECT_EQ(last_error().failure, Failure::NOT_FOUND);
    }
    EXPECT_THAT(list("Folder"), ElementsAre("File"));
}

TEST_F(DiskRules, KnowAFileUnderAllItsNames) {
    disk::put("one", "content");
    std::filesystem::create_hard_link("one", "two");
    {
        const File open = File::open("one", {});
        EXPECT_FALSE(File::open("two", for_writing).valid());
        EXPECT_FALSE(remove_file("two"));
    }
    EXPECT_TRUE(rename_path("one", "two"));
    EXPECT_THAT(list("."), ElementsAre("two"));
}

TEST_F(DiskRules, TakeTheOwnersWritePermissionForTheAttribute) {
    disk::put("file", "");
    ASSERT_EQ(::chmod("file", 0466), 0);
    EXPECT_TRUE(get_attributes("file")->is_read_only);
    EXPECT_FALSE(File::open("file", for_writing).valid());
    EXPECT_EQ(last_error().failure, Failure::READ_ONLY);
    ASSERT_TRUE(set_read_only("file", false));
    EXPECT_TRUE(File::open("file", for_writing).valid());
    ASSERT_TRUE(set_read_only("file", true));
    struct stat status;
    ASSERT_EQ(::stat("file", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0444u);
}

TEST_F(DiskRules, CreateUnderTheUmask) {
    const mode_t before = ::umask(027);
    File::open("file", for_creating);
    create_directory("folder");
    ::umask(0222);
    const bool opened = File::open("born_read_only", for_creating).valid();
    ::umask(before);
    struct stat status;
    ASSERT_EQ(::stat("file", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0640u);
    ASSERT_EQ(::stat("folder", &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0750u);
    EXPECT_TRUE(opened) << "whoever creates a file may write it";
}

TEST_F(DiskRules, LeakNoDescriptorAndHandNoneToChildren) {
    disk::put("file", "");
    const int before = ::dup(0);
    ::close(before);
    for (const char* path : {"file", "missing", ".", "/dev/null", "FILE", "no/where/file"}) {
        const File file = File::open(path, {});
        EXPECT_TRUE(!file.valid() || (::fcntl(static_cast<int>(file.native()), F_GETFD) & FD_CLOEXEC) != 0);
        list(path);
        Root::open(path);
        get_attributes(path);
    }
    replace_file("file", "other");
    const int after = ::dup(0);
    ::close(after);
    EXPECT_EQ(after, before);
}

TEST_F(DiskRules, ReachAFileThroughARootThatMoved) {
    std::filesystem::create_directory("base");
    disk::put("base/file", "");
    const Root root = Root::open("base");
    const std::string full = path_to("base/file");
    const PathAt at{full.c_str(), &root, full.c_str() + full.size() - 4};
    std::filesystem::rename("base", "moved");
    EXPECT_TRUE(File::open(at, {}).valid());
    std::filesystem::remove("moved/file");
    EXPECT_FALSE(File::open(at, {}).valid());
    std::filesystem::create_directory("BASE");
    disk::put("BASE/FILE", "");
    EXPECT_TRUE(File::open(at, {}).valid()) << "the full path is tried when the root has nothing";
}

TEST_F(DiskRules, LeaveTheAccessTimeAlone) {
    disk::put("file", "");
    ASSERT_TRUE(set_all_times("file", 126227808000000000));
    ASSERT_TRUE(set_write_time("file", 133000000001234567));
    EXPECT_EQ(get_attributes("file")->access_time, 126227808000000000);
}

// Two threads that make "Name" and "name" must end with one file: the lookup and the making are one step.
TEST_F(DiskRules, MakeOneFileAndOneFolderOfManySpellings) {
    for (int round = 0; round < 20; ++round) {
        const std::string number = std::to_string(round);
        std::atomic<int> made{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> workers;
        for (std::size_t id = 0; id < 6; ++id) {
            workers.emplace_back([&, id] {
                std::string folder = "folder" + number;
                std::string file = "file" + number;
                folder[id] = static_cast<char>(folder[id] - 32);
                file[id % 4] = static_cast<char>(file[id % 4] - 32);
                while (!go) std::this_thread::yield();
                if (create_directory(folder.c_str())) ++made;
                File::open(file.c_str(), for_creating);
            });
        }
        go = true;
        for (std::thread& worker : workers) worker.join();
        EXPECT_EQ(made.load(), 1);
        EXPECT_EQ(list(".").size(), static_cast<std::size_t>(2 * (round + 1)));
    }
}

}  // namespace
