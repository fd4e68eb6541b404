// The throughput test's control in-process: its figures, its requests to the modem and what it
// does with the answers. The runs against a streaming node are in the end-to-end tests.

#include "tarvo_test_handler.h"

#include <cmath>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.h"
#include "tarvo_message_handler.h"
#include "tarvo_test_message.h"

namespace tarvo {

using tarvo_message::ModemTestTputRequest;
using tarvo_message::TarvoMessage;

namespace {

TEST(TputSamplesTest, ASampleOf125MillionBytesIsTenGigabitsPerSecond) {
    EXPECT_EQ(TputSamples::Throughput(125000000), 10.0);
    EXPECT_EQ(TputSamples::Throughput(0), 0.0);
}

TEST(TputSamplesTest, TheFirstSampleIsCountedButLeftOutOfTotalAndMaximum) {
    TputSamples samples;
    EXPECT_TRUE(std::isnan(samples.Average()));

    EXPECT_EQ(samples.Add(125000000), 10.0);
    EXPECT_EQ(samples.count(), 1u);
    EXPECT_EQ(samples.total_bytes(), 0u);
    EXPECT_EQ(samples.max_throughput(), 0.0);
    EXPECT_EQ(samples.Average(), 0.0);

    samples.Add(12500000);
    samples.Add(25000000);
    EXPECT_EQ(samples.count(), 3u);
    EXPECT_EQ(samples.total_bytes(), 37500000u);
    EXPECT_EQ(samples.max_throughput(), 2.0);
    // The bytes of two samples divided by three, in the daemon's order of operations.
    EXPECT_EQ(samples.Average(), 37500000.0 * 8 / 1000 / 1000 / 1000 * 10 / 3);

    samples.Clear();
    EXPECT_EQ(samples.count(), 0u);
    EXPECT_TRUE(std::isnan(samples.Average()));
}

TEST(TputSamplesTest, TotalWrapsAtThirtyTwoBits) {
    TputSamples samples;
    samples.Add(1);
    samples.Add(0xFFFFFFFFu);
    samples.Add(2);
    EXPECT_EQ(samples.total_bytes(), 1u);
}

TEST(TarvoTestMessageTest, TputRequestSetsEveryFieldZerosIncluded) {
    TarvoTestMessage start(tarvo_message::REQUEST);
    ASSERT_EQ(start.FillTputTestRequest(true, false, 60000, 3000, 200), 0);
    const TarvoMessage& envelope = *start.GetVekMessage()->GetTarvoMessage();
    EXPECT_EQ(envelope.message_id(), TarvoMessage::kModemTest);
    const ModemTestTputRequest& request = envelope.modem_test().tput_request();
    EXPECT_TRUE(request.downlink());
    EXPECT_FALSE(request.stop());
    EXPECT_EQ(request.param_a(), 60000);
    EXPECT_EQ(request.param_b(), 3000);
    EXPECT_EQ(request.param_c(), 200);

    // Zeros and false are on the wire too: the modem tells "0" from "not given".
    TarvoTestMessage end(tarvo_message::REQUEST);
    ASSERT_EQ(end.FillTputTestRequest(false, true, 0, 0, 0), 0);
    const ModemTestTputRequest& zeros =
        end.GetVekMessage()->GetTarvoMessage()->modem_test().tput_request();
    EXPECT_TRUE(zeros.has_downlink() && zeros.has_stop() && zeros.has_param_a() &&
                zeros.has_param_b() && zeros.has_param_c());
    EXPECT_EQ(zeros.ByteSizeLong(), 10u);
}

TEST(TarvoTestMessageTest, FillReplacesAnotherPayloadAndNeedsAMessage) {
    TarvoMessage received;
    received.set_type(tarvo_message::RESPONSE);
    received.mutable_property()->mutable_write_response();
    const std::string bytes = received.SerializeAsString();
    const VekMessage parsed(bytes.data(), static_cast<int>(bytes.size()));
    TarvoTestMessage message(&parsed);
    ASSERT_EQ(message.FillTputTestRequest(true, true, 1, 2, 3), 0);
    EXPECT_EQ(message.GetVekMessage()->GetTarvoMessage()->payload_case(), TarvoMessage::kModemTest);
    EXPECT_TRUE(parsed.GetTarvoMessage()->has_property());

    TarvoTestMessage empty(static_cast<const VekMessage*>(nullptr));
    EXPECT_EQ(empty.FillTputTestRequest(true, false, 0, 0, 0), tarvo_message::RESULT_INVALID);
}

// A message handler that answers the test's requests itself: online or not, and with the send
// status and result chosen by the test.
class ModemStandIn : public TarvoMessageHandler {
  public:
    ModemStandIn() { request_list_ = std::make_unique<RequestList>(); }

    bool IsModemOnline() override { return online; }

    int SendRequest(VekMessage* request, unsigned int timeout_seconds) override {
        timeouts.push_back(timeout_seconds);
        sent.push_back(*request->GetTarvoMessage());
        if (status != 0) return status;
        VekMessage response;
        response.InitialHeader(TarvoMessage::kModemTest, tarvo_message::RESPONSE);
        response.GetTarvoMessage()->set_token(request->GetToken());
        response.GetTarvoMessage()->set_result(static_cast<tarvo_message::TarvoResult>(result));
        request_list_->AddRecord(RequestRecord(request->GetToken()));
        request_list_->UpdateResponseMessage(request->GetToken(), &response);
        return 0;
    }

    bool Listed(uint32_t token) { return request_list_->IsRecordInList(token); }

    bool online = true;
    int status = 0;
    int result = 0;
    std::vector<TarvoMessage> sent;
    std::vector<unsigned int> timeouts;
};

class TarvoTestHandlerTest : public testing::Test {
  protected:
    LogCapture log_;
    ModemStandIn modem_;
    TarvoTestHandler handler_{&modem_};
};

TEST_F(TarvoTestHandlerTest, OfflineModemGetsNoRequest) {
    modem_.online = false;
    EXPECT_EQ(handler_.SendTarvoTestRequest(true, false, 60000, 3000, 200),
              tarvo_message::RESULT_BAD_FORMAT);
    EXPECT_TRUE(modem_.sent.empty());
    EXPECT_EQ(log_.Lines(), std::vector<LogLine>{Error("Modem is not online")});
}

TEST_F(TarvoTestHandlerTest, AnswersAreLoggedAndTheirRecordsRemoved) {
    const std::vector<std::pair<int, LogLine>> cases = {
        {0, Info("Got modem test response successful")},
        {5, Error("Got modem test response failed")},
        // Only the low 16 bits of the result count.
        {0x10000, Info("Got modem test response successful")},
        {0x10001, Error("Got modem test response failed")},
    };
    for (const auto& [result, line] : cases) {
        log_.Clear();
        modem_.result = result;
        EXPECT_EQ(handler_.SendTarvoTestRequest(false, true, 0, 0, 0), 0);
        EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{Info("Sending modem test request"), line}))
            << result;
        EXPECT_FALSE(modem_.Listed(modem_.sent.back().token()));
    }
    EXPECT_EQ(modem_.timeouts, std::vector<unsigned int>(4, 3));
}

TEST_F(TarvoTestHandlerTest, FailedSendIsLoggedWithItsStatus) {
    modem_.status = tarvo_message::RESULT_FAILURE;
    EXPECT_EQ(handler_.SendTarvoTestRequest(true, true, 0, 0, 0), tarvo_message::RESULT_FAILURE);
    EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{Info("Sending modem test request"),
                                                  Error("Failed to send request, status:5")}));
}

TEST_F(TarvoTestHandlerTest, SamplingLogsEachNonZeroSample) {
    handler_.OnReceiveTputPkt(100000000);
    handler_.OnReceiveTputPkt(25000000);
    handler_.WaitForTputResponse(1);
    EXPECT_EQ(log_.Lines(),
              (std::vector<LogLine>{
                  Info("Modem_IPC_Test DL:Tput : 10.000000 (GBps) | byte_counter: 125000000 ")}));
    EXPECT_EQ(handler_.samples().count(), 1u);
}

TEST_F(TarvoTestHandlerTest, UplinkRunAsksTheModemEvenWhenTheNodeIsMissing) {
    EXPECT_EQ(handler_.TputULTestRun("/nonexistent/oem_test"), 0);
    ASSERT_EQ(modem_.sent.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        const ModemTestTputRequest& request = modem_.sent[i].modem_test().tput_request();
        EXPECT_EQ(modem_.sent[i].type(), tarvo_message::REQUEST);
        EXPECT_FALSE(request.downlink());
        EXPECT_EQ(request.stop(), i == 1);
        EXPECT_TRUE(request.has_param_a() && request.has_param_b() && request.has_param_c());
    }
    EXPECT_TRUE(log_.Contains(ANDROID_LOG_ERROR, "Failed to open IO channel"));

    modem_.online = false;
    log_.Clear();
    EXPECT_EQ(handler_.TputULTestRun("/nonexistent/oem_test"), tarvo_message::RESULT_IO_ERROR);
    EXPECT_EQ(log_.Lines(), (std::vector<LogLine>{
                                Error("Modem is not online"),
                                Error("Modem Failed to initiate UL(AP2CP) Tput transimision")}));
}

}  // namespace

}  // namespace tarvo
