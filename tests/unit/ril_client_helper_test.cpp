#include "ril_client_helper.h"

#include <android/log.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <android-base/stringprintf.h>

#include <mutex>
#include <string>
#include <vector>

#include "ril_request_helper.h"

using testing::ElementsAre;

namespace {

struct RadioLine {
    int buffer;
    int priority;
    std::string text;
    bool operator==(const RadioLine& other) const {
        return buffer == other.buffer && priority == other.priority && text == other.text;
    }
};

std::ostream& operator<<(std::ostream& out, const RadioLine& line) {
    return out << "buffer " << line.buffer << " priority " << line.priority << " \"" << line.text
               << "\"";
}

RadioLine Info(const std::string& text) {
    return {LOG_ID_RADIO, ANDROID_LOG_INFO, "RilClientHelperDLImpl::" + text};
}
RadioLine Error(const std::string& text) {
    return {LOG_ID_RADIO, ANDROID_LOG_ERROR, "RilClientHelperDLImpl::" + text};
}

// The lines logged under the RIL client's tag, with their buffer.
class RadioLogCapture {
  public:
    RadioLogCapture() {
        previous_priority_ = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        active_ = this;
        __android_log_set_logger(&RadioLogCapture::Write);
    }
    ~RadioLogCapture() {
        __android_log_set_logger(__android_log_stderr_logger);
        __android_log_set_minimum_priority(previous_priority_);
        active_ = nullptr;
    }

    std::vector<RadioLine> Lines() {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }

  private:
    static void Write(const __android_logger_data* data, const char* message) {
        if (active_ == nullptr || data->tag == nullptr ||
            std::string(data->tag) != "libvekril-client") {
            return;
        }
        std::lock_guard<std::mutex> lock(active_->mutex_);
        active_->lines_.push_back({data->buffer_id, data->priority, message});
    }

    static inline RadioLogCapture* active_ = nullptr;
    std::mutex mutex_;
    std::vector<RadioLine> lines_;
    int previous_priority_;
};

void IgnoreResponse(unsigned int, int, void*, unsigned long, unsigned int) {}
void IgnoreUnsolicited(unsigned int, void*, unsigned long, unsigned int) {}

}  // namespace

// A process of the unit tests has no RIL client library on its library path.
TEST(RilClientHelperTest, WithoutTheLibraryEveryCallFailsAndIsLogged) {
    RadioLogCapture log;
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
    EXPECT_THAT(log.Lines(),
                ElementsAre(Info("RilClientHelperDLImpl create instance"), Info("Init"),
                            Error("Init error: dlopen failure"), Info("Open"), Info("Open"),
                            Info("Close"), Info("Reconnect"),
                            // The short form is the long one with selector 255.
                            Info("Send"), Info("Send"), Info("RegisterUnsolicitedResponseHandler"),
                            Info("SetIndicationFilter"),
                            Error("SetIndicationFilter filter=" + pointer + " size=3"),
                            Info("~RilClientHelperDLImpl release instance"), Info("Release")));
}

TEST(RilClientHelperTest, WithoutTheLibraryEveryConnectionAttemptOpensAgain) {
    RadioLogCapture log;
    EXPECT_EQ(RilRequestHelper::GetInstance(), nullptr);
    EXPECT_EQ(RilRequestHelper::GetInstance(), nullptr);
    EXPECT_EQ(RilClientHelper::GetInstance(), RilClientHelper::GetInstance());
    // The library is looked for once; each connection attempt opens again.
    EXPECT_THAT(log.Lines(),
                ElementsAre(Info("RilClientHelperDLImpl create instance"), Info("Init"),
                            Error("Init error: dlopen failure"), Info("Open"), Info("Open")));
}
