// Native files: how they are opened, and reads that wait in the queue.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <tuple>

#include "engine/filesystem/contract/open_file.h"
#include "engine/filesystem/handles/io_queue.h"
#include "engine/filesystem/handles/request.h"
#include "tests/sources/kit.h"

namespace {

constexpr std::uint32_t long_wait_ms = 20000;

using fs::FilePtr;

struct NativeOpen : testing::Test {
    FilePtr open(EFSMode::TYPE mode, std::uint32_t flags = 0) const {
        return FilePtr(fs::open_native(nullptr, path.c_str(), mode, static_cast<FFSOpenFlags::FLAGS>(flags)));
    }
    /// What one read of the file as gzip gives.
    std::string unzipped() const {
        const FilePtr file = open(EFSMode::READ, 0x10);
        std::string text;
        return fs::read_rest(file.get(), text) ? text : "failed";
    }
    const TempDirectory directory;
    const std::string path = directory / "a.txt";
};

TEST_F(NativeOpen, ModeAndFlagsDecideWhetherAFileIsOpenedCutOrMade) {
    using enum EFSMode::TYPE;
    struct Row {
        const char* label;
        EFSMode::TYPE mode;
        std::uint32_t flags;
        bool existing;  // whether the file is there before
        bool opens;
        const char* after;     // content after writing "new" where the mode writes
        bool is_full = false;  // the disk, when the end is set
    };
    const Row rows[] = {
        {"read with create is a read", READ, 0x20, false, false, nullptr},
        {"write missing", WRITE, 0, false, false, nullptr},
        {"append never creates", APPEND, 0x20, false, false, nullptr},
        {"append gzip", APPEND, 0x010, true, false, "old text"},
        {"append gzip 5", APPEND, 0x004, true, false, "old text"},
        {"read-write create", READ_WRITE, 0x20, true, true, "new"},
        {"read-write create and gzip", READ_WRITE, 0x30, true, false, "old text"},
        {"mode 4", static_cast<EFSMode::TYPE>(4), 0, true, false, "old text"},
        {"gzip write cannot empty", WRITE, 0x4, true, false, "old text", true},
        {"gzip write of a new file", WRITE, 0x4, false, false, nullptr, true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::filesystem::remove(path);
        if (row.existing) directory.write("a.txt", "old text");
        fs::clear_error();
        if (row.is_full) platform::inject_fault(platform::FaultPoint::SET_END, 1, platform::Failure::DISK_FULL, true);
        FilePtr file = open(row.mode, row.flags);
        platform::clear_faults();
        EXPECT_EQ(fs::last_error().code == EFSError::NONE, row.opens);
        EXPECT_EQ(file != nullptr, row.opens);
        if (row.is_full) EXPECT_EQ(fs::last_error().code, EFSError::DISK_FULL);
        if (file != nullptr) EXPECT_EQ(file->write("new", 3), 3u);
        file.reset();
        EXPECT_EQ(directory.exists("a.txt"), row.after != nullptr);
        if (row.after != nullptr) EXPECT_EQ(directory.read("a.txt"), row.after);
        EXPECT_NE(open(EFSMode::WRITE, 0x20), nullptr) << "a handle is left";
    }
    EXPECT_EQ(fs::open_native(nullptr, nullptr, EFSMode::WRITE, FFSOpenFlags::CREATE), nullptr);
}

TEST_F(NativeOpen, GzipLevelsWriteWhatGzipReadsAndDamageIsReported) {
    std::string text;
    for (int i = 0; i < 5000; ++i) text += "line " + std::to_string(i * 31 % 977) + "\n";
    for (const std::uint32_t level : {0x004u, 0x008u, 0x200u}) {
        EXPECT_EQ(open(EFSMode::WRITE, level)->write(text.data(), text.size()), text.size());
        EXPECT_EQ(directory.read("a.txt").substr(0, 2), "\x1f\x8b");
        EXPECT_TRUE(unzipped() == text) << level;
    }
    const std::string whole = directory.read("a.txt");
    directory.write("a.txt", whole.substr(0, whole.size() / 2));
    EXPECT_EQ(unzipped(), "failed");
    EXPECT_EQ(test::why(false), EFSError::BAD_FORMAT);
    directory.write("a.txt", "not gzip");
    EXPECT_EQ(unzipped(), "not gzip");
    // The gap that a writer seeks over used to be filled from memory that nobody had cleared.
    for (const std::size_t gap : {1u, 20000u, 300000u}) {
        for (int i = 0; i < 4; ++i) std::vector<char>(200000, 'x');  // what the buffers may get
        EXPECT_TRUE(open(EFSMode::WRITE, 0x200)->seek(static_cast<std::int64_t>(gap), EFSSeek::BEGIN));
        EXPECT_TRUE(unzipped() == std::string(gap, '\0')) << gap;
    }
}

TEST_F(NativeOpen, TheMonitorHearsOfOpensThatSucceed) {
    RecordingMonitor monitor;
    open(EFSMode::READ);
    open(EFSMode::WRITE, 0x22);
    fs::monitor_touch_file("touched");
    EXPECT_EQ(fs::set_monitor(nullptr), &monitor);
    fs::monitor_touch_file("after");
    EXPECT_EQ(monitor.touched, (std::vector<std::string>{"a.txt 1+34", "touched 0+0"}));
    struct : fs::IFsMonitor {
        void touch_file(const char*, EFSMode::TYPE mode, FFSOpenFlags::FLAGS) override {
            if (mode == EFSMode::APPEND) throw std::length_error("long");
            throw std::system_error(std::make_error_code(std::errc::io_error));  // it was taken for a lack of memory
        }
    } thrower;
    directory.write("a.txt", "old");
    fs::set_monitor(&thrower);
    EXPECT_EQ(test::why(open(EFSMode::READ)), EFSError::IO);
    EXPECT_EQ(test::why(open(EFSMode::WRITE, 0x400)), EFSError::IO);
    EXPECT_EQ(directory.read("a.txt"), "old") << "an empty file used to take its place";
    EXPECT_EQ(test::why(open(EFSMode::APPEND)), EFSError::TOO_LARGE);
    fs::monitor_touch_file("touched");
    fs::set_monitor(nullptr);
}

TEST_F(NativeOpen, APartThatWasMovedIsGivenWithTheReasonWhyItIsNotAll) {
    const FilePtr file = open(EFSMode::WRITE, 0x20);
    platform::inject_fault(platform::FaultPoint::WRITE, 1, platform::Failure::NONE, false);
    EXPECT_EQ(file->write("abcd", 4), 2u);
    platform::clear_faults();
    EXPECT_EQ(test::why(false), EFSError::DISK_FULL);
    platform::inject_fault(platform::FaultPoint::LENGTH, 1, platform::Failure::IO, false);
    EXPECT_EQ(test::why(file->length() != ~std::uint64_t{0}), EFSError::IO);
    platform::clear_faults();
    EXPECT_EQ(test::why(file->seek(-1, EFSSeek::BEGIN)), EFSError::INVALID_ARGUMENT);
#if !defined(_WIN32)
    // The memory of this process ends behind its environment.
    const auto here = static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(std::getenv("PATH")));
    const FilePtr memory(fs::open_native(nullptr, "/proc/self/mem", EFSMode::READ));
    if (here == 0 || memory == nullptr) GTEST_SKIP() << "not available: /proc/self/mem";
    std::string bytes(16 << 20, '\0');
    EXPECT_TRUE(memory->seek(here, EFSSeek::BEGIN));
    EXPECT_LT(memory->read(bytes.data(), bytes.size()), bytes.size());
    EXPECT_EQ(test::why(false), EFSError::IO) << "it is not the end of the file";
    EXPECT_EQ(bytes.c_str(), std::string(std::getenv("PATH")));
#endif
}

struct ReleaseRequest {
    void operator()(SFsRequest* request) const { request->Release(); }
};
using RequestPtr = std::unique_ptr<SFsRequest, ReleaseRequest>;

using Act = std::function<void(SFsRequest*)>;

/// `act`, which outlives the request, is what its callback does.
RequestPtr make_request(const Act& act) {
    const auto callback = [](SFsRequest* request, void* user) { (*static_cast<const Act*>(user))(request); };
    return RequestPtr(SFsRequest::Create(callback, const_cast<Act*>(&act)));
}

class ReadQueue : public ::testing::Test {
protected:
    ReadQueue() {
        fs::start_queues();
        for (std::size_t i = 0; i < content_.size(); ++i) content_[i] = static_cast<char>(i * 7 + i / 251);
        path_ = directory_.write("data.bin", content_);
        file_ = Open(FFSOpenFlags::ASYNC);
    }
    ~ReadQueue() override {
        gate_.Set();
        file_.reset();
        fs::stop_queues();
    }

    FilePtr Open(FFSOpenFlags::FLAGS flags) {
        return FilePtr(fs::open_native(nullptr, path_.c_str(), EFSMode::READ, flags));
    }
    bool Queue(const RequestPtr& request, std::uint32_t priority = 0) {
        return file_->read_async(sink_, 0, 8, request.get(), priority);
    }
    /// Queues a request whose callback keeps the worker until the gate opens.
    RequestPtr HoldWorker() {
        RequestPtr request = make_request(hold_);
        EXPECT_TRUE(file_->read_async(held_sink_, 0, 4, request.get(), 1000));
        EXPECT_TRUE(entered_.Wait(long_wait_ms));
        return request;
    }
    bool WaitForCalls(std::size_t count) {
        while (count != 0 && called_.Wait(long_wait_ms)) --count;
        return count == 0;
    }

    const Act note_ = [this](SFsRequest* request) {
        {
            const std::lock_guard guard(lock_);
            order_.push_back(request);
        }
        called_.Release();
    };
    const Act hold_ = [this](SFsRequest*) {
        entered_.Set();
        gate_.Wait(long_wait_ms);
    };
    const TempDirectory directory_;
    std::string content_ = std::string(100000, '\0');
    std::string path_;
    mt::CEvent entered_{true};
    mt::CEvent gate_{true};
    mt::CSemaphore called_{0, 1000000};
    std::mutex lock_;  // guards order_
    std::vector<SFsRequest*> order_;
    char sink_[64] = {};
    char held_sink_[4] = {};
    FilePtr file_;
};

TEST_F(ReadQueue, TellsHowEachReadEnded) {
    using enum EFSRequestResult::TYPE;
    const std::uint64_t end = content_.size();
    const RequestPtr request = make_request(note_);  // a finished one serves again
    const std::tuple<std::uint64_t, std::uint64_t, EFSRequestResult::TYPE, std::uint64_t> rows[] = {
        {777, 5000, SUCCESS, 5000}, {end - 60, 100, SUCCESS, 60}, {end + 5, 100, FAILED, 0}, {0, 0, SUCCESS, 0}};
    for (const auto& [offset, size, result, there] : rows) {
        SCOPED_TRACE(offset);
        std::string got(size, '\0');
        ASSERT_TRUE(file_->read_async(got.data(), offset, size, request.get(), 0));
        ASSERT_TRUE(request->Wait(size == 0 ? 0 : long_wait_ms) && WaitForCalls(1));
        EXPECT_EQ(request->State(), EFSRequestState::FINISHED);
        EXPECT_EQ(request->Result(), result);
        EXPECT_EQ(request->Transferred(), result == SUCCESS ? size : 0) << "as asked for";
        EXPECT_EQ(got.substr(0, there), content_.substr(std::min(offset, end), there));
    }
    file_->cancel_async(request.get());
    EXPECT_EQ(request->Result(), EFSRequestResult::CANCELLED) << "even when it was done";
}

// An unbuffered read that failed behind its first piece used to be told as a success.
TEST_F(ReadQueue, APartThatEndsBeforeTheFileDoesIsAFailure) {
    path_ = directory_.write("large.bin", std::string(3 << 20, 'x'));
    const FilePtr file = Open(FFSOpenFlags::ASYNC_UNBUFFERED);
    std::string got(2 << 20, '\0');
    const RequestPtr request = make_request(note_);
    platform::inject_fault(platform::FaultPoint::READ, 2, platform::Failure::OTHER, false);
    ASSERT_TRUE(file->read_async(got.data(), 1, got.size(), request.get(), 0));
    EXPECT_TRUE(request->Wait(long_wait_ms));
    const bool struck = platform::fault_hits() != 0;  // where the disk reads unbuffered, unaligned bytes come in pieces
    platform::clear_faults();
    EXPECT_EQ(request->Result(), struck ? EFSRequestResult::FAILED : EFSRequestResult::SUCCESS);
}

TEST_F(ReadQueue, ServesHigherPrioritiesFirstAndEqualsInTheirOrder) {
    const RequestPtr held = HoldWorker();
    std::vector<RequestPtr> requests;
    for (const std::int32_t priority : {0, 5, 0, -3, 5, 7, -3, 0}) {
        requests.push_back(make_request(note_));
        ASSERT_TRUE(Queue(requests.back(), static_cast<std::uint32_t>(priority)));
        EXPECT_EQ(requests.back()->State(), EFSRequestState::QUEUED);
    }
    gate_.Set();
    ASSERT_TRUE(WaitForCalls(requests.size()));
    std::vector<SFsRequest*> expected;
    for (const std::size_t i : {5u, 1u, 4u, 0u, 2u, 7u, 3u, 6u}) expected.push_back(requests[i].get());
    EXPECT_EQ(order_, expected);
}

TEST_F(ReadQueue, ACancelledQueuedReadCallsBackOnceAndNeverReads) {
    const RequestPtr held = HoldWorker();
    FilePtr closed = Open(FFSOpenFlags::ASYNC);
    const RequestPtr of_closed = make_request(note_), cancelled = make_request(note_), after = make_request(note_);
    std::string got(8, '\0');
    ASSERT_TRUE(closed->read_async(sink_, 0, 8, of_closed.get(), 3) && Queue(cancelled));
    ASSERT_TRUE(file_->read_async(got.data(), 16, 8, after.get(), 0));
    EXPECT_FALSE(Queue(cancelled)) << "a request on its way cannot be queued a second time";
    file_->cancel_async(cancelled.get());
    closed.reset();
    for (const RequestPtr& request : {std::cref(cancelled), std::cref(of_closed)}) {
        EXPECT_EQ(request->State(), EFSRequestState::FINISHED);
        EXPECT_EQ(request->Result(), EFSRequestResult::CANCELLED);
        EXPECT_TRUE(request->Wait(0));
    }
    gate_.Set();
    ASSERT_TRUE(after->Wait(long_wait_ms) && WaitForCalls(3));
    EXPECT_EQ(order_, (std::vector<SFsRequest*>{cancelled.get(), of_closed.get(), after.get()}));
    EXPECT_EQ(std::string(sink_, 8), std::string(8, '\0'));
    EXPECT_EQ(got, content_.substr(16, 8));
}

TEST_F(ReadQueue, StoppingCancelsWhatIsQueuedOnceAndFailsAfterwards) {
    const RequestPtr held = HoldWorker();
    std::vector<RequestPtr> requests;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        requests.push_back(make_request(note_));
        ASSERT_TRUE(Queue(requests.back(), i % 17));
    }
    std::thread stopper(fs::stop_queues);
    while (Queue(RequestPtr(SFsRequest::Create(nullptr, nullptr)), 20)) std::this_thread::yield();
    gate_.Set();
    stopper.join();
    for (const RequestPtr& request : requests) ASSERT_EQ(request->Result(), EFSRequestResult::CANCELLED);
    EXPECT_EQ(order_.size(), requests.size());
    EXPECT_EQ(held->Result(), EFSRequestResult::SUCCESS);
    EXPECT_FALSE(Queue(requests[0]));
    EXPECT_EQ(file_->read(sink_, 8), ~std::uint64_t{0});
}

TEST_F(ReadQueue, ACallbackMayThrowReadQueueTheNextReadAndCancel) {
    const Act throws = [](SFsRequest*) { throw 1; };
    const RequestPtr thrower = make_request(throws);
    ASSERT_TRUE(Queue(thrower) && thrower->Wait(long_wait_ms)) << "it ends nothing but itself";
    for (const FFSOpenFlags::FLAGS flags : {FFSOpenFlags::ASYNC, FFSOpenFlags::ASYNC_UNBUFFERED}) {
        const FilePtr file = Open(flags);
        std::string got(100, '\0');
        std::uint64_t size = 0;
        int left = 50;
        const Act act = [&](SFsRequest* request) {
            if (--left > 0) {
                EXPECT_TRUE(file->read_async(got.data(), 0, 8, request, 0));
                return;
            }
            size = file->read(got.data(), got.size());
            file->cancel_async(request);
            called_.Release();
        };
        ASSERT_TRUE(file->seek(-60, EFSSeek::END));
        const RequestPtr request = make_request(act);
        ASSERT_TRUE(file->read_async(got.data(), 0, 8, request.get(), 0));
        ASSERT_TRUE(WaitForCalls(1));
        EXPECT_EQ(size, 60u);
        EXPECT_EQ(got.substr(0, 60), content_.substr(content_.size() - 60));
    }
}

// A cancelled read used to call back after cancel_async had returned, when what the callback needs may be gone.
TEST_F(ReadQueue, CancellingRacesCompletionAndReturnsAfterTheOneCallback) {
    const auto race = [&] {
        char sink[16];
        for (int i = 0; i < 3000; ++i) {
            std::atomic<int> called{0};
            const Act count = [&called](SFsRequest*) { ++called; };
            const RequestPtr request = make_request(count);
            EXPECT_TRUE(file_->read_async(sink, static_cast<std::uint64_t>(i), 16, request.get(), 0));
            if (i % 4 == 0) EXPECT_TRUE(request->Wait(long_wait_ms));
            file_->cancel_async(request.get());
            EXPECT_EQ(called, 1);
        }
    };
    std::thread other(race);
    race();
    other.join();
}

// Whoever asked for the state and queued at once used to be woken by the event of the read before.
TEST(ReadRequest, IsFreeOnlyOnceItsEventIsSet) {
    const RequestPtr owner(SFsRequest::Create(nullptr, nullptr));
    Request& request = Request::Of(owner.get());
    EXPECT_TRUE(request.IsFree());
    request.BeginQueued();
    request.status.Set(EFSRequestState::IN_PROGRESS);
    request.status.EndProgress(EFSRequestResult::SUCCESS);
    EXPECT_EQ(request.State(), EFSRequestState::FINISHED);
    EXPECT_FALSE(request.IsFree());
    request.Signal();
    EXPECT_TRUE(request.IsFree());
}

TEST_F(ReadQueue, SynchronousReadsAndSeeksKeepToTheLengthAtOpening) {
    for (const FFSOpenFlags::FLAGS flags : {FFSOpenFlags::ASYNC, FFSOpenFlags::ASYNC_UNBUFFERED}) {
        SCOPED_TRACE(flags);
        const FilePtr file = Open(flags);
        EXPECT_EQ(file->length(), content_.size());
        std::string got(60000, '\0');
        EXPECT_TRUE(file->seek(1003, EFSSeek::BEGIN));
        EXPECT_EQ(file->read(got.data(), got.size()), got.size());
        EXPECT_TRUE(got == content_.substr(1003, got.size()));
        EXPECT_TRUE(file->seek(-10, EFSSeek::END));
        for (const std::uint64_t there : {10u, 0u}) EXPECT_EQ(file->read(got.data(), 100), there);
        EXPECT_EQ(got.substr(0, 10), content_.substr(content_.size() - 10));
        EXPECT_EQ(test::why(file->seek(1, EFSSeek::END)), EFSError::INVALID_ARGUMENT);
        EXPECT_EQ(file->tell(), content_.size() + 1);
        EXPECT_EQ(file->read(got.data(), 1), 0u);
        EXPECT_FALSE(file->seek(-1, EFSSeek::BEGIN));
        EXPECT_EQ(file->write("x", 1), ~std::uint64_t{0});
    }
}

}  // namespace
