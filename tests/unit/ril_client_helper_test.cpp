#include "ril_client_helper.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/stringprintf.h>

#include <string>

#include "log_capture.h"

namespace tarvo {

using testing::ElementsAre;

namespace {

constexpr const char* kRilTag = "libvekril-client";

LogLine RadioInfo(const std::string& text) {
    return {ANDROID_LOG_INFO, "RilClientHelperDLImpl::" + text, kRilTag};
}
LogLine RadioError(const std::string& text) {
    return {ANDROID_LOG_ERROR, "RilClientHelperDLImpl::" + text, kRilTag};
}

void IgnoreResponse(unsigned int, int, void*, unsigned long, unsigned int) {}
void IgnoreUnsolicited(unsigned int, void*, unsigned long, unsigned int) {}

}  // namespace

// A process of the unit tests has no RIL client library on its library path.
TEST(RilClientHelperTest, WithoutTheLibraryEveryCallFailsAndIsLogged) {
    LogCapture log(kRilTag, LOG_ID_RADIO);
    int handle = 0;
    int filter[3] = {1, 2, 3};
    {
        RilClientHelperDLImpl helper;
        EXPECT_FALSE(helper.Init());
        EXPECT_EQ(helper.Open(), nullptr);
        EXPECT_EQ(helper.Open("arg"), nullptr);
        EXPECT_EQ(helper.Close(&handle), 1);
        EXPECT_EQ(helper.Reconnect(&handle), 1);
        EXPECT_EQ(helper.Send(&handle, 227, filter, 2, IgnoreResponse), 1);
        EXPECT_EQ(helper.RegisterUnsolicitedResponseHandler(&handle, IgnoreUnsolicited), 1);
        EXPECT_EQ(helper.SetIndicationFilter(&handle, filter, 3), 1);
    }
    const std::string pointer = android::base::StringPrintf("%p", static_cast<void*>(filter));
    EXPECT_THAT(
        log.Lines(),
        ElementsAre(RadioInfo("RilClientHelperDLImpl create instance"), RadioInfo("Init"),
                    RadioError("Init error: dlopen failure"), RadioInfo("Open"), RadioInfo("Open"),
                    RadioInfo("Close"), RadioInfo("Reconnect"),
                    // The short form is the long one with selector 255.
                    RadioInfo("Send"), RadioInfo("Send"),
                    RadioInfo("RegisterUnsolicitedResponseHandler"),
                    RadioInfo("SetIndicationFilter"),
                    RadioError("SetIndicationFilter filter=" + pointer + " size=3"),
                    RadioInfo("~RilClientHelperDLImpl release instance"), RadioInfo("Release")));
}

}  // namespace tarvo
