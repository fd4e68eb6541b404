#include <unistd.h>

#include <gtest/gtest.h>

#include "service_capture.h"
#include "tarvo_service_handler.h"
#include "tarvo_uecap_file_message.h"

namespace tarvo {

using tarvo_message::TarvoMessage;
using tarvo_message::UecapFileMessage;

TEST(TarvoUecapFileMessageTest, OneWrapperIsRefilledBlockByBlock) {
    auto request = Received("type: REQUEST token: 70 uecap_file {}");
    TarvoUecapFileMessage answer(tarvo_message::RESPONSE, request.get());
    const TarvoMessage& envelope = *answer.GetVekMessage()->GetTarvoMessage();
    EXPECT_EQ(envelope.message_id(), 12u);
    EXPECT_EQ(envelope.token(), 70u);

    answer.SetUecapFileMessageResult(tarvo_message::UECAP_RESULT_SUCCESS);
    answer.FillUecapReadResponseData("abcd\0f", 6);
    answer.FillUecapReadResponse(0, false);
    ASSERT_EQ(envelope.uecap_file().UecapFileOperation_case(), UecapFileMessage::kReadResponse);
    const auto& block = envelope.uecap_file().read_response();
    EXPECT_EQ(block.data(), std::string("abcd\0f", 6));

    answer.FillUecapReadResponseData("gh", 2);
    answer.FillUecapReadResponse(6, true);
    answer.SetToken(71);
    EXPECT_EQ(block.data(), "gh");
    EXPECT_EQ(block.offset(), 6u);
    EXPECT_TRUE(block.last());
    EXPECT_TRUE(block.has_result());
    EXPECT_EQ(envelope.token(), 71u);

    answer.FillUecapReadResponseData(nullptr, 0);
    EXPECT_TRUE(block.has_data());
    EXPECT_EQ(block.data(), "");
}

// The answer that every refused request gets: one empty first block carrying both results.
void ExpectOneRefusal(const RecordingMessageHandler& modem, int envelope_result, int uecap_result) {
    ASSERT_EQ(modem.Responses().size(), 1u);
    const TarvoMessage& answer = modem.Response(0);
    EXPECT_EQ(answer.type(), tarvo_message::RESPONSE);
    EXPECT_EQ(answer.token(), 5u);
    EXPECT_EQ(answer.result(), envelope_result);
    ASSERT_EQ(answer.uecap_file().UecapFileOperation_case(), UecapFileMessage::kReadResponse);
    const auto& block = answer.uecap_file().read_response();
    EXPECT_EQ(block.result(), uecap_result);
    EXPECT_TRUE(block.has_data());
    EXPECT_EQ(block.data(), "");
    EXPECT_TRUE(block.has_offset());
    EXPECT_EQ(block.offset(), 0u);
    EXPECT_TRUE(block.has_last());
    EXPECT_FALSE(block.last());
}

struct Refusal {
    const char* request;
    unsigned int status;
};

using UecapFileReadRequestTest = ServiceHandlerTest;

TEST_F(UecapFileReadRequestTest, MalformedRequestsAreAnsweredAsBadFormat) {
    const Refusal cases[] = {
        {"property { read_request {} }", 2},
        {"uecap_file {}", 2},
        {"uecap_file { read_response {} }", 2},
        {"uecap_file { read_request { directory: FILE_DIR_UECAP read_size: 1 } }", 2},
        {"uecap_file { read_request { file_name: \"a\" read_size: 1 } }", 2},
        {"uecap_file { read_request { file_name: \"a\" directory: 9 } }", 8},
        {"uecap_file { read_request { file_name: \"a\" directory: FILE_DIR_UNKNOWN } }", 8},
        {"uecap_file { read_request { file_name: \"a\" directory: -1 } }", 8},
    };
    for (const Refusal& c : cases) {
        SCOPED_TRACE(c.request);
        handler_.Clear();
        log_.Clear();
        auto request = Received(std::string("type: REQUEST token: 5 ") + c.request);
        EXPECT_EQ(service_.OnReceiveUecapFileReadRequest(request.get()), c.status);
        ExpectOneRefusal(handler_, tarvo_message::RESULT_BAD_FORMAT,
                         tarvo_message::UECAP_RESULT_BAD_FORMAT);
        EXPECT_EQ(
            log_.Lines(),
            (std::vector<LogLine>{{ANDROID_LOG_ERROR, "The incoming request has bad format"}}));
    }
}

TEST_F(UecapFileReadRequestTest, OtherWhitelistedDirectoriesAreReadFailures) {
    for (const char* directory : {"FILE_DIR_MDS", "FILE_DIR_REPLAY"}) {
        SCOPED_TRACE(directory);
        handler_.Clear();
        log_.Clear();
        auto request = Received(
            std::string("type: REQUEST token: 5 uecap_file { read_request { file_name: \"cap\" "
                        "read_size: 10 block_size: 4 directory: ") +
            directory + " } }");
        EXPECT_EQ(service_.OnReceiveUecapFileReadRequest(request.get()), 8u);
        ExpectOneRefusal(handler_, tarvo_message::RESULT_FAILURE,
                         tarvo_message::UECAP_RESULT_READ_FAILED);
        // Refused before any path is built.
        EXPECT_EQ(log_.Lines(),
                  (std::vector<LogLine>{{ANDROID_LOG_ERROR, "UECap File Read failed."}}));
    }
}

TEST_F(UecapFileReadRequestTest, AMissingFileIsAReadFailureWithoutAnOpenError) {
    if (access("/vendor/firmware/uecapconfig", F_OK) == 0) {
        GTEST_SKIP() << "the firmware directory exists here; covered end to end";
    }
    auto request = Received(
        R"(type: REQUEST token: 5 uecap_file { read_request {
               file_name: "cap.bin" read_size: 10 block_size: 4 directory: FILE_DIR_UECAP } })");

    EXPECT_EQ(service_.OnReceiveUecapFileReadRequest(request.get()), 8u);

    ExpectOneRefusal(handler_, tarvo_message::RESULT_FAILURE,
                     tarvo_message::UECAP_RESULT_READ_FAILED);
    EXPECT_EQ(log_.Lines(),
              (std::vector<LogLine>{
                  {ANDROID_LOG_INFO, "prefix: /vendor/firmware/uecapconfig/ file_name: cap.bin"},
                  {ANDROID_LOG_ERROR, "UECap File Read failed."}}));
}

TEST_F(UecapFileReadRequestTest, NoEnvelopeNoAnswer) {
    VekMessage no_envelope(nullptr, 0);
    EXPECT_EQ(service_.OnReceiveUecapFileReadRequest(&no_envelope), 2u);
    EXPECT_EQ(service_.OnReceiveUecapFileReadRequest(nullptr), 2u);
    EXPECT_EQ(handler_.Attempts(), 0u);
}

}  // namespace tarvo
