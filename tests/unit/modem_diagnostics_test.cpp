#include <gmock/gmock.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

#include <string>

#include "service_capture.h"
#include "tarvo_extended_log_message.h"
#include "tarvo_modem_stat_message.h"
#include "tarvo_userspace_log_message.h"

namespace tarvo {

using google::protobuf::util::MessageDifferencer;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

// The request as built, with its fresh token taken out so that it compares with a fixed text.
tarvo_message::TarvoMessage Built(const TarvoPayloadMessage& request) {
    tarvo_message::TarvoMessage envelope = *request.GetVekMessage()->GetTarvoMessage();
    EXPECT_TRUE(envelope.has_token());
    envelope.clear_token();
    return envelope;
}

testing::AssertionResult Is(const tarvo_message::TarvoMessage& actual, const std::string& text) {
    tarvo_message::TarvoMessage expected;
    if (!google::protobuf::TextFormat::ParseFromString(text, &expected)) {
        return testing::AssertionFailure() << "bad text: " << text;
    }
    if (MessageDifferencer::Equals(actual, expected)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "built { " << actual.ShortDebugString() << " }";
}

TEST(ModemDiagnosticsMessageTest, StatisticsEnableSendsOnlyConfiguredFields) {
    LogCapture log;
    TarvoModemStatMessage request(tarvo_message::REQUEST);
    EXPECT_EQ(request.FillEnableRequest("L1", 3, 10), 0u);
    EXPECT_TRUE(Is(Built(request), R"(type: REQUEST message_id: 5
        modem_stat { enable_request { module: "L1" v: 3 t: 10 } })"));
    // A fill replaces the earlier one whole.
    EXPECT_EQ(request.FillEnableRequest("RRC", -1, 0), 0u);
    EXPECT_TRUE(
        Is(Built(request),
           R"(type: REQUEST message_id: 5 modem_stat { enable_request { module: "RRC" } })"));
    EXPECT_EQ(request.FillEnableRequest("L1", 0, 0), 0u);
    EXPECT_TRUE(
        Is(Built(request),
           R"(type: REQUEST message_id: 5 modem_stat { enable_request { module: "L1" v: 0 } })"));
    EXPECT_EQ(request.FillEnableRequest("L1", -7, 4294967295u), 0u);
    EXPECT_TRUE(Is(Built(request), R"(type: REQUEST message_id: 5
        modem_stat { enable_request { module: "L1" t: 4294967295 } })"));
    EXPECT_THAT(log.Lines(), IsEmpty());

    TarvoModemStatMessage empty(tarvo_message::REQUEST);
    EXPECT_EQ(empty.FillEnableRequest("", 1, 1), 2u);
    EXPECT_TRUE(Is(Built(empty), "type: REQUEST message_id: 5"));
    EXPECT_THAT(log.Lines(), ElementsAre(Error("Input module is empty")));

    TarvoModemStatMessage report(tarvo_message::REQUEST);
    EXPECT_EQ(report.FillReportRequest(), 0u);
    EXPECT_TRUE(Is(Built(report), "type: REQUEST message_id: 5 modem_stat { report_request {} }"));
}

TEST(ModemDiagnosticsMessageTest, LogRequests) {
    LogCapture log;
    TarvoExtendedLogMessage extended(tarvo_message::REQUEST);
    EXPECT_EQ(extended.FillRequest(), 0u);
    EXPECT_TRUE(Is(Built(extended), "type: REQUEST message_id: 6 extended_log { request {} }"));

    TarvoUserspaceLogMessage enable(tarvo_message::REQUEST);
    EXPECT_EQ(enable.FillEnableRequest("modem\r"), 0u);
    EXPECT_TRUE(Is(Built(enable), R"(type: REQUEST message_id: 8
        userspace_log { enable_request { name: "modem\r" } })"));
    EXPECT_THAT(log.Lines(), IsEmpty());

    // An empty name leaves the request without payload.
    TarvoUserspaceLogMessage empty(tarvo_message::REQUEST);
    EXPECT_EQ(empty.FillEnableRequest(""), 2u);
    EXPECT_TRUE(Is(Built(empty), "type: REQUEST message_id: 8"));
    EXPECT_THAT(log.Lines(), ElementsAre(Error("Input name is empty")));
}

using ModemDiagnosticsServiceTest = ServiceHandlerTest;

TEST_F(ModemDiagnosticsServiceTest, ModemLinesArePrintedAtTheirLevelsPriority) {
    EXPECT_EQ(Indication(R"(type: INDICATION userspace_log { indication { log: "e" level: 0 } })"),
              0u);
    EXPECT_EQ(Indication(R"(type: INDICATION userspace_log { indication { log: "i" level: 1 } })"),
              0u);
    EXPECT_EQ(Indication(R"(type: INDICATION userspace_log { indication { log: "d" level: 7 } })"),
              0u);
    EXPECT_EQ(Indication(R"(type: INDICATION userspace_log { indication { log: "w" level: 2 } })"),
              0u);
    EXPECT_EQ(Indication(R"(type: INDICATION userspace_log { indication { log: "%s %n" } })"), 0u);
    EXPECT_THAT(log_.Lines(),
                ElementsAre(Info("Got userspace log indication"), Error("Modem: e"),
                            Info("Got userspace log indication"), Info("Modem: i"),
                            Info("Got userspace log indication"), Debug("Modem: d"),
                            Info("Got userspace log indication"), Debug("Modem: w"),
                            Info("Got userspace log indication"), Error("Modem: %s %n")));
    EXPECT_THAT(handler_.Responses(), IsEmpty());
}

TEST_F(ModemDiagnosticsServiceTest, IndicationsOfAnotherCaseAreIgnored) {
    // Requests echoed back, a report piece without data, an empty payload: routed, then refused
    // before any file is touched.
    EXPECT_EQ(Indication("type: INDICATION modem_stat { report_request {} }"), 2u);
    EXPECT_EQ(Indication("type: INDICATION modem_stat { report_indication { offset: 0 } }"), 2u);
    EXPECT_EQ(Indication("type: INDICATION extended_log { request {} }"), 2u);
    EXPECT_EQ(Indication("type: INDICATION extended_log {}"), 2u);
    EXPECT_EQ(Indication("type: INDICATION userspace_log { enable_request { name: 'x' } }"), 2u);
    EXPECT_THAT(
        log_.Lines(),
        ElementsAre(Info("Got modemstat report indication"),
                    Info("Got modemstat report indication"), Info("Got extended log indication"),
                    Info("Got extended log indication"), Info("Got userspace log indication")));
    // As requests they stay unsupported.
    log_.Clear();
    EXPECT_EQ(Request("type: REQUEST token: 1 modem_stat { report_indication { data: 'x' } }"), 1u);
    EXPECT_EQ(Request("type: REQUEST token: 2 extended_log { indication {} }"), 1u);
    EXPECT_THAT(log_.Lines(), ElementsAre(Error("RequestHandler: Unsupported message id 5"),
                                          Error("RequestHandler: Unsupported message id 6")));
    EXPECT_THAT(handler_.Responses(), IsEmpty());
}

TEST_F(ModemDiagnosticsServiceTest, RequestsWaitForAModemThatIsOnline) {
    // No monitor runs here, so the modem is never online: nothing is sent.
    for (unsigned int command : {0u, 2u, 3u}) {
        log_.Clear();
        EXPECT_EQ(service_.SendServiceRequest(command), 3u) << command;
        EXPECT_THAT(log_.Lines(), ElementsAre(Error("Modem is not online"))) << command;
    }
    log_.Clear();
    EXPECT_EQ(service_.SendModemStatEnableRequest("L1", 1, 1), 3u);
    EXPECT_THAT(log_.Lines(), ElementsAre(Error("Modem is not online")));
}

}  // namespace

}  // namespace tarvo
