#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "service_capture.h"

namespace tarvo {

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using ServiceDispatchTest = ServiceHandlerTest;

TEST_F(ServiceDispatchTest, WrongKindsOfMessageAreRefusedSilently) {
    EXPECT_EQ(service_.OnReceiveRequest(nullptr), 2u);
    EXPECT_EQ(service_.OnReceiveIndication(nullptr), 2u);
    EXPECT_EQ(service_.OnReceiveFileMessageRequest(nullptr), 2u);
    EXPECT_EQ(Request("type: RESPONSE file { read_request { file_dir: FILE_DIR_MDS } }"), 2u);
    EXPECT_EQ(Request("type: INDICATION file { read_request { file_dir: FILE_DIR_MDS } }"), 2u);
    EXPECT_EQ(Request("file { read_request { file_dir: FILE_DIR_MDS } }"), 2u);
    EXPECT_EQ(Indication("type: RESPONSE file { write_indication { file_dir: FILE_DIR_MDS } }"),
              2u);
    EXPECT_EQ(Indication("type: REQUEST file { write_indication { file_dir: FILE_DIR_MDS } }"), 2u);
    EXPECT_EQ(service_.OnReceiveFileMessageRequest(
                  Received("type: INDICATION file { read_request {} }").get()),
              2u);
    EXPECT_THAT(log_.Lines(), IsEmpty());
    EXPECT_THAT(handler_.Responses(), IsEmpty());
}

TEST_F(ServiceDispatchTest, UnsupportedIdsAreLoggedWithTheirNumber) {
    struct Case {
        bool indication;
        std::string message;
        std::vector<LogLine> lines;
    };
    const Case cases[] = {
        {false, "type: REQUEST", {Error("RequestHandler: Unsupported message id 0")}},
        {false,
         "type: REQUEST userspace_log {}",
         {Error("RequestHandler: Unsupported message id 8")}},
        {false,
         "type: REQUEST modem_test {}",
         {Error("RequestHandler: Unsupported message id 11")}},
        // A read response sent back by mistake names the inner operation, not the id.
        {false,
         "type: REQUEST file { read_response {} }",
         {Info("Got File message request"), Error("RequestHandler: Unsupported message id 5")}},
        {false,
         "type: REQUEST file { write_indication {} }",
         {Info("Got File message request"), Error("RequestHandler: Unsupported message id 3")}},
        {false,
         "type: REQUEST file {}",
         {Info("Got File message request"), Error("RequestHandler: Unsupported message id 0")}},
        {true,
         "type: INDICATION property {}",
         {Error("IndicationHandler: Unsupported message id 7")}},
        {true,
         "type: INDICATION modem_test {}",
         {Error("IndicationHandler: Unsupported message id 11")}},
    };
    for (const Case& c : cases) {
        log_.Clear();
        EXPECT_EQ(c.indication ? Indication(c.message) : Request(c.message), 1u) << c.message;
        EXPECT_EQ(log_.Lines(), c.lines) << c.message;
    }
    EXPECT_THAT(handler_.Responses(), IsEmpty());
}

TEST_F(ServiceDispatchTest, CommandsWithoutAnOperationAreRefused) {
    // Any other command is refused.
    for (unsigned int command : {5u, 0xFFFFFFFFu}) {
        log_.Clear();
        EXPECT_EQ(service_.SendServiceRequest(command), 2u) << command;
        EXPECT_THAT(log_.Lines(), ElementsAre(Error("Unsupport command type " +
                                                    std::to_string(static_cast<int>(command)))));
    }
}

TEST_F(ServiceDispatchTest, CommandFourLoadsTheGnssCoexTable) {
    // A process of the unit tests has no RIL client library to load.
    EXPECT_EQ(service_.SendServiceRequest(4), 8u);
    EXPECT_THAT(log_.Lines(),
                ElementsAre(Info("Configuring GNSS coex"),
                            Error("Failed to connect to RIL to send GNSS coex configuration")));
}

TEST_F(ServiceDispatchTest, FileOperationsReachTheirHandlers) {
    // Without a file_dir each handler refuses the message in its own words, unanswered.
    EXPECT_EQ(Request("type: REQUEST token: 1 file { write_request { file_name: 'a' } }"), 2u);
    EXPECT_EQ(Request("type: REQUEST token: 2 file { append_request { file_name: 'a' } }"), 2u);
    EXPECT_EQ(Request("type: REQUEST token: 3 file { read_request { file_name: 'a' } }"), 2u);
    EXPECT_EQ(Indication("type: INDICATION file { write_indication { file_name: 'a' } }"), 2u);
    EXPECT_THAT(
        log_.Lines(),
        ElementsAre(Info("Got File message request"), Info("Got File write request"),
                    Error("FileWriteRequest requires a file_dir"), Info("Got File message request"),
                    Info("Got File write append request"),
                    Error("FileWriteRequest requires a file_dir"), Info("Got File message request"),
                    Info("Got File read request"), Error("FileReadRequest requires a file_dir"),
                    Info("Got File write indication"),
                    Error("FileWriteIndication requires a file_dir")));
    EXPECT_THAT(handler_.Responses(), IsEmpty());
}

TEST_F(ServiceDispatchTest, RequestsMissingAFieldOrOfTheOldRevisionAreNotAnswered) {
    // The old revision is recognised before the missing fields are.
    EXPECT_EQ(Request("type: REQUEST token: 1 file { write_request { file_path: '/x' } }"), 2u);
    EXPECT_EQ(Request("type: REQUEST token: 2 file { write_request { file_dir: FILE_DIR_MDS } }"),
              2u);
    EXPECT_EQ(Request("type: REQUEST token: 3 file { append_request { file_dir: FILE_DIR_MDS } }"),
              2u);
    EXPECT_EQ(Request("type: REQUEST token: 4 file { read_request { file_dir: FILE_DIR_MDS } }"),
              2u);
    EXPECT_EQ(Indication("type: INDICATION file { write_indication { file_dir: FILE_DIR_MDS } }"),
              2u);
    EXPECT_THAT(LinesAt(ANDROID_LOG_ERROR),
                ElementsAre(Error("Old FileWriteRequest is no longer supported"),
                            Error("FileWriteRequest requires a file_name"),
                            Error("FileWriteRequest requires a file_name"),
                            Error("FileReadRequest requires a file_name"),
                            Error("FileWriteIndication requires a file_name")));
    EXPECT_THAT(handler_.Responses(), IsEmpty());
}

TEST_F(ServiceDispatchTest, BlockAtOrPastTheTotalSizeIsRefusedBeforeTouchingFiles) {
    EXPECT_EQ(Request("type: REQUEST token: 7 file { write_request { file_name: 'n' "
                      "file_dir: FILE_DIR_REPLAY data: 'x' } }"),
              8u);
    EXPECT_THAT(log_.Lines(),
                ElementsAre(Info("Got File message request"), Info("Got File write request"),
                            Info("file dir: 2 and name: n"), Info("offset: 0x0, size: 0x0"),
                            Info("prefix: /mnt/vendor/modem_userdata/replay/\nfile_name: n"),
                            Error("Bad max_data_size 0x0 or offset 0x0")));
    ASSERT_EQ(handler_.Responses().size(), 1u);
    EXPECT_EQ(handler_.Response(0).token(), 7u);
    EXPECT_EQ(handler_.Response(0).result(), tarvo_message::RESULT_FAILURE);
    EXPECT_EQ(handler_.Response(0).file().write_response().result(),
              tarvo_message::FILE_RESULT_BAD_OFFSET);

    // An indication's own file_path is not the old revision: it is processed like any other
    // block, and its failures are never answered.
    log_.Clear();
    EXPECT_EQ(Indication("type: INDICATION file { write_indication { file_path: '/old' "
                         "file_name: 'n' file_dir: FILE_DIR_MDS total_size: 0x10 offset: 0x10 } }"),
              8u);
    EXPECT_THAT(log_.Lines().back(), Error("Bad max_data_size 0x10 or offset 0x10"));
    EXPECT_EQ(handler_.Responses().size(), 1u);
}

}  // namespace

}  // namespace tarvo
