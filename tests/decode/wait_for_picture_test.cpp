// Waiting for the current picture on the user-interface thread: the notices, aborting on
// pending navigation input, and what the wait returns.
#include "decode/wait_for_picture.h"

#include "cache_fixture.h"

namespace orvanta::decode::test {
namespace {

class WaitTest : public CacheTest {};

TEST_F(WaitTest, ReturnsOnceThePictureIsThereWithBothNotices) {
    decoder_.Set("p001", Outcome::Blocking);
    Open(2, {0, 0}, 1);
    Show(1);
    ASSERT_TRUE(decoder_.WaitRunning("p001"));
    // The decode ends once the wait has begun: at the window's first look at its input.
    WaitRequest request;
    request.navigationPending = [&] {
        decoder_.LetGo();
        return false;
    };
    EXPECT_EQ(WaitForPicture(Entry(1), request, &notices_), S_OK);
    const auto notices = notices_.All();
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_EQ(notices[0].message, 0x467);
    EXPECT_EQ(notices[1].message, 0x468);
    EXPECT_FALSE(notices[1].aborted);
}

TEST_F(WaitTest, PendingNavigationAbortsTheDecodeWhenTheSettingAllowsIt) {
    settings::EnableAbortableImageLoading.Set(1);
    decoder_.Set("p001", Outcome::Blocking);
    Open(2, {0, 0}, 1);
    Show(1);
    ASSERT_TRUE(decoder_.WaitRunning("p001"));
    WaitRequest request;
    request.navigationPending = [] { return true; };
    EXPECT_EQ(WaitForPicture(Entry(1), request, &notices_), S_FALSE);
    EXPECT_EQ(Entry(1).abortFlag.load(), 1u);
    const auto notices = notices_.All();
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_TRUE(notices[1].aborted);
}

// true: the setting is on but the caller needs the pixels; false: the setting is off.
class WaitGoesOn : public CacheTest, public testing::WithParamInterface<bool> {};

TEST_P(WaitGoesOn, WithoutTheSettingOrWhenTheCallerNeedsThePixels) {
    const bool settingOn = GetParam();
    settings::EnableAbortableImageLoading.Set(settingOn ? 1 : 0);
    decoder_.Set("p001", Outcome::Blocking);
    Open(2, {0, 0}, 1);
    Show(1);
    ASSERT_TRUE(decoder_.WaitRunning("p001"));
    WaitRequest request;
    request.abortable = !settingOn;
    request.navigationPending = [] { return true; };
    // The decode ends while the window waits: the first look at the input comes before the
    // first pause, so the abort would have happened by then.
    std::thread release([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(120));
        decoder_.LetGo();
    });
    EXPECT_EQ(WaitForPicture(Entry(1), request, nullptr), S_OK);
    release.join();
    EXPECT_EQ(Entry(1).abortFlag.load(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Cases, WaitGoesOn, testing::Bool());

TEST_F(WaitTest, WithoutAPictureReturnsTheFailureOrEFail) {
    Open(2, {0, 0});
    list::PictureEntry& entry = Entry(1);
    // Not decoding: nothing to wait for, no waiting notice.
    entry.decodeResult = static_cast<std::int32_t>(E_UNSUPPORTED_TYPE.Code());
    EXPECT_EQ(WaitForPicture(entry, {}, &notices_), E_UNSUPPORTED_TYPE);
    entry.decodeResult = 0;
    EXPECT_EQ(WaitForPicture(entry, {}, &notices_), E_FAIL);
    const auto notices = notices_.All();
    ASSERT_EQ(notices.size(), 2u);
    EXPECT_EQ(notices[0].message, 0x468);
    // A timeout of 0 does not wait for a decode in progress.
    entry.decoding.store(true);
    WaitRequest request;
    request.timeout = std::chrono::milliseconds(0);
    request.notify = false;
    EXPECT_EQ(WaitForPicture(entry, request, &notices_), E_FAIL);
    entry.decoding.store(false);
}

}  // namespace
}  // namespace orvanta::decode::test
