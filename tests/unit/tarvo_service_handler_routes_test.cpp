#include <gtest/gtest.h>

#include "service_capture.h"
#include "tarvo_service_handler.h"

namespace tarvo {

// Routes of the property, temperature and UE-capability requests: the info line naming what
// arrived comes first, and the handler's status is returned unchanged.
class ServiceRoutesTest : public ServiceHandlerTest {
  protected:
    unsigned int Receive(const std::string& text) {
        request_ = Received(text);
        return service_.OnReceiveRequest(request_.get());
    }
    std::vector<LogLine> FirstLines(size_t count) const {
        std::vector<LogLine> lines = log_.Lines();
        if (lines.size() > count) lines.resize(count);
        return lines;
    }

    std::unique_ptr<VekMessage> request_;
};

TEST_F(ServiceRoutesTest, PropertyRequest) {
    EXPECT_EQ(Receive(R"(type: REQUEST token: 1 property { read_request { name: "a.b" } })"), 0u);
    EXPECT_EQ(FirstLines(1), (std::vector<LogLine>{{ANDROID_LOG_INFO, "Get property request"}}));
    ASSERT_EQ(handler_.Responses().size(), 1u);
    EXPECT_EQ(handler_.Response(0).message_id(), 7u);

    // Not a read or a write: the handler's 2 comes back and nothing is sent.
    EXPECT_EQ(Receive("type: REQUEST token: 2 property {}"), 2u);
    EXPECT_EQ(handler_.Attempts(), 1u);
}

TEST_F(ServiceRoutesTest, ModemTemperatureRequest) {
    EXPECT_EQ(Receive("type: REQUEST token: 1 modem_temperature { set_request {} }"), 0u);
    EXPECT_EQ(FirstLines(1),
              (std::vector<LogLine>{{ANDROID_LOG_INFO, "Got modem temperature request"}}));
    ASSERT_EQ(handler_.Responses().size(), 1u);
    EXPECT_EQ(handler_.Response(0).message_id(), 10u);
}

TEST_F(ServiceRoutesTest, UecapFileReadRequest) {
    EXPECT_EQ(Receive(R"(type: REQUEST token: 1
                         uecap_file { read_request { file_name: "x" directory: 9 } })"),
              8u);
    EXPECT_EQ(FirstLines(3),
              (std::vector<LogLine>{{ANDROID_LOG_INFO, "Got Uecap File message request"},
                                    {ANDROID_LOG_INFO, "Got Uecap File Read request"},
                                    {ANDROID_LOG_ERROR, "The incoming request has bad format"}}));
    ASSERT_EQ(handler_.Responses().size(), 1u);
    EXPECT_EQ(handler_.Response(0).message_id(), 12u);
}

TEST_F(ServiceRoutesTest, UnknownUecapOperationIsReportedWithItsOwnNumber) {
    EXPECT_EQ(Receive("type: REQUEST token: 1 uecap_file { read_response {} }"), 1u);
    EXPECT_EQ(Receive("type: REQUEST token: 2 uecap_file {}"), 1u);
    EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{
                                {ANDROID_LOG_INFO, "Got Uecap File message request"},
                                {ANDROID_LOG_ERROR, "RequestHandler: Unsupported message id 2"},
                                {ANDROID_LOG_INFO, "Got Uecap File message request"},
                                {ANDROID_LOG_ERROR, "RequestHandler: Unsupported message id 0"},
                            }));
    EXPECT_EQ(handler_.Attempts(), 0u);
}

TEST_F(ServiceRoutesTest, OnlyRequestsAreRouted) {
    EXPECT_EQ(Receive(R"(type: RESPONSE token: 1 property { read_request { name: "a" } })"), 2u);
    EXPECT_EQ(Receive("type: INDICATION modem_temperature { set_request {} }"), 2u);
    EXPECT_EQ(Receive(R"(token: 1 uecap_file { read_request { file_name: "a" directory: 3 } })"),
              2u);
    EXPECT_TRUE(log_.Lines().empty());
    EXPECT_EQ(handler_.Attempts(), 0u);
}

TEST_F(ServiceRoutesTest, NeighbouringIdsStayUnsupported) {
    EXPECT_EQ(Receive("type: REQUEST token: 1 userspace_log { enable_request {} }"), 1u);
    EXPECT_EQ(Receive("type: REQUEST token: 1 modem_test { tput_request {} }"), 1u);
    EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{
                                {ANDROID_LOG_ERROR, "RequestHandler: Unsupported message id 8"},
                                {ANDROID_LOG_ERROR, "RequestHandler: Unsupported message id 11"},
                            }));
    EXPECT_EQ(handler_.Attempts(), 0u);
}

}  // namespace tarvo
