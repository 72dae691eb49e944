#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <thread>

#include "engine/platform/process.h"
#include "tests/platform/disk.h"

// What only a disk that knows case, links and pipes can show.

namespace {

using namespace disk;
using testing::ElementsAre;

class DiskRules : public DiskTest {};

mode_t mode_of(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 ? status.st_mode & 0777 : 0;
}

TEST_F(DiskRules, PreferTheExactThenTheLowerCaseThenTheSmallestSpelling) {
    for (const char* name : {"NAME", "Name", "nAME"}) write_file(name, "");
    EXPECT_EQ(spelled("Name"), "Name");
    EXPECT_EQ(spelled("name"), "NAME") << "the smallest by bytes";
    write_file("name", "");
    EXPECT_EQ(spelled("nAMe"), "name");
    EXPECT_EQ(spelled("nAME"), "nAME");
    EXPECT_THAT(list("."), ElementsAre("NAME", "Name", "nAME", "name"));

    std::filesystem::create_directory("DIR");
    std::filesystem::create_directory("dir");
    write_file("DIR/file", "");
    EXPECT_FALSE(get_attributes("dir/file") || get_attributes("Dir/file")) << "this directory wins, whatever it holds";
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
        EXPECT_FALSE(get_attributes(path) || set_read_only(path, true) || remove_file(path));
    }
    write_file("file", "");
    EXPECT_FALSE(rename_path("file", "pipe"));
    EXPECT_THAT(list("."), ElementsAre("file"));
    ::close(listener);
}

TEST_F(DiskRules, FollowLinksRemoveThemAloneAndKnowAFileUnderAllItsNames) {
    std::filesystem::create_directory("folder");
    write_file("folder/inner", "i");
    write_file("file", "content");
    std::filesystem::create_symlink("folder", "to_folder");
    std::filesystem::create_symlink("file", "to_file");
    std::filesystem::create_symlink("nowhere", "broken");
    write_file("back\\slash", "");
    DirectoryListing listing;
    ASSERT_TRUE(list_directory({"."}, listing));
    ASSERT_EQ(listing.items().size(), 4u) << "neither the broken link nor the backslash";
    EXPECT_TRUE(listing.items()[3].is_link && listing.items()[3].is_directory);
    EXPECT_TRUE(listing.items()[2].is_link && !listing.items()[2].is_directory);

    FileId folder, behind_link;
    ASSERT_TRUE(get_directory_id("folder", folder) && get_directory_id("TO_FOLDER", behind_link));
    EXPECT_EQ(folder, behind_link);
    EXPECT_TRUE(is_link("to_folder") && is_link("To_Folder/") && is_link("to_file") && !is_link("folder"));
    EXPECT_FALSE(File::open("broken", for_creating).valid()) << "a link must not make a file elsewhere";
    File open = File::open("to_file", {});
    ASSERT_TRUE(open.valid());
    EXPECT_FALSE(remove_file("file")) << "open under another name";
    EXPECT_TRUE(remove_file("to_file")) << "the link itself is not open";
    std::filesystem::create_hard_link("file", "hard");
    EXPECT_EQ(try_open("hard", for_writing), Failure::IN_USE);
    EXPECT_FALSE(remove_file("hard"));
    open.close();
    EXPECT_TRUE(rename_path("file", "hard")) << "one file under two names";
    EXPECT_FALSE(remove_file("folder"));
    EXPECT_TRUE(remove_directory("to_folder/") && remove_file("broken"));
    EXPECT_EQ(read_file("folder/inner") + read_file("hard"), "icontent");
}

TEST_F(DiskRules, NameWhatStaysOfATreeAndRemoveTheRest) {
    std::filesystem::create_directories("tree/b");
    for (const char* name : {"tree/a", "tree/b/open", "tree/b/other", "tree/kept", "tree/z"}) write_file(name, "");
    const File open = File::open("tree/b/open", {});
    std::vector<std::string> gone;
    TreeRemoval removal;
    removal.keeps = [](const DirectoryItem& item) { return std::string(item.name) == "kept"; };
    removal.removed = [&](const char* path, const DirectoryItem&) { gone.emplace_back(path); };
    EXPECT_EQ(outcome(remove_tree("tree", removal)), Failure::IN_USE);
    EXPECT_EQ(removal.left, "tree/b/open");
    EXPECT_THAT(gone, ElementsAre("tree/a", "tree/b/other", "tree/z"));
    EXPECT_EQ(outcome(remove_tree("none", removal)), Failure::NOT_FOUND);
    EXPECT_EQ(removal.left, "none");
}

// A name is held, absent, or the disk does not tell; and what it did not tell once is asked again.
TEST_F(DiskRules, TellAnAbsentNameFromOneThatCouldNotBeLookedFor) {
    std::filesystem::create_directory("Folder");
    write_file("Folder/File", "");
    for (const Failure failure : {Failure::IO, Failure::OUT_OF_MEMORY, Failure::TOO_MANY_FILES}) {
        std::filesystem::rename("Folder", "folder");  // nothing remembered of it is good any more
        std::filesystem::rename("folder", "Folder");
        inject_fault(FaultPoint::LIST, 1, failure, true);
        for (const char* path : {"FOLDER/file", "Folder/FILE", "Folder/missing"}) {
            EXPECT_EQ(outcome(get_attributes(path).has_value()), failure) << path;
            EXPECT_EQ(try_open(path, for_creating), failure) << path;
        }
        clear_faults();
        EXPECT_TRUE(get_attributes("FOLDER/file").has_value());
        EXPECT_EQ(outcome(get_attributes("folder/missing").has_value()), Failure::NOT_FOUND);
    }
    EXPECT_THAT(list("Folder"), ElementsAre("File"));
}

TEST_F(DiskRules, CreateUnderTheUmaskAndTakeTheOwnersWritePermissionForTheAttribute) {
    const mode_t before = ::umask(027);
    try_open("file", for_creating);
    create_directory("folder");
    ::umask(0222);
    EXPECT_EQ(try_open("born_read_only", for_creating), Failure::NONE) << "whoever creates a file may write it";
    ::umask(before);
    EXPECT_EQ(mode_of("file"), 0640u);
    EXPECT_EQ(mode_of("folder"), 0750u);
    ASSERT_EQ(::chmod("file", 0466), 0);
    EXPECT_TRUE(get_attributes("file")->is_read_only);
    EXPECT_EQ(try_open("file", for_writing), Failure::READ_ONLY);
    ASSERT_TRUE(set_read_only("file", false));
    EXPECT_EQ(try_open("file", for_writing), Failure::NONE);
    ASSERT_TRUE(set_read_only("file", true));
    EXPECT_EQ(mode_of("file"), 0444u);
}

TEST_F(DiskRules, LeakNoDescriptorAndHandNoneToChildren) {
    write_file("file", "");
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
    File closed_already = File::open("other", {});
    ::close(static_cast<int>(closed_already.native()));
    EXPECT_FALSE(closed_already.close()) << "what the system says at last is told";
    const int after = ::dup(0);
    ::close(after);
    EXPECT_EQ(after, before);
}

// Two threads that make "Name" and "name" must end with one file: the lookup and the making are one step.
TEST_F(DiskRules, MakeOneFileAndOneFolderOfManySpellings) {
    for (std::size_t round = 1; round <= 20; ++round) {
        std::atomic<int> made{0};
        run_together(6, [&](std::size_t id) {
            std::string folder = "folder" + std::to_string(round);
            std::string file = "file" + std::to_string(round);
            for (char* letter : {&folder[id % 6], &file[id % 4]}) *letter = static_cast<char>(*letter - 32);
            if (create_directory(folder.c_str())) ++made;
            try_open(file, for_creating);
        });
        EXPECT_EQ(made, 1);
        EXPECT_EQ(list(".").size(), 2 * round);
    }
}

TEST_F(DiskRules, LoseNoLockToForkedProcessesAndLeaveThemNone) {
    write_file("file", "");
    for (const OpenOptions& options : {for_reading, for_writing}) {
        SCOPED_TRACE(static_cast<int>(options.access));
        File file = File::open("file", options);
        const pid_t heir = ::fork();  // has the descriptor as long as it lives
        if (heir == 0) {
            for (;;) ::pause();
        }
        const pid_t short_lived = ::fork();
        if (short_lived == 0) {
            file.close();
            ::_exit(0);
        }
        ::waitpid(short_lived, nullptr, 0);
        EXPECT_EQ(try_open_elsewhere(for_writing), Failure::IN_USE) << "a child has closed its copy";
        file.close();
        EXPECT_EQ(try_open_elsewhere(for_writing), Failure::NONE) << "a child has its copy still";
        ::kill(heir, SIGKILL);
        ::waitpid(heir, nullptr, 0);
    }
}

TEST(Console, TakesEverythingThroughAPipeThatIsFullForAWhileAndSurvivesOneThatNobodyReads) {
    int ends[2];
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    const std::string text(1 << 20, 'x');  // many times what a pipe holds
    std::thread writer([&] {
        write_console(&ends[1], text.data(), text.size());
        ::close(ends[1]);
    });
    EXPECT_TRUE(read_file("/dev/fd/" + std::to_string(ends[0])) == text);
    writer.join();
    ::close(ends[0]);

    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    ::close(ends[0]);
    write_console(&ends[1], "lost", 4);
    ::close(ends[1]);
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
}

}  // namespace
