#include "vek_message.h"

#include <gtest/gtest.h>

#include "log_capture.h"
#include "token_gen.h"

namespace tarvo {

using tarvo_message::TarvoMessage;

namespace {

std::string Serialize(const TarvoMessage& message) {
    std::string bytes;
    message.SerializeToString(&bytes);
    return bytes;
}

}  // namespace

TEST(VekMessageTest, OnlyRequestHeadersDrawTokens) {
    VekMessage first;
    ASSERT_TRUE(first.InitialHeader(TarvoMessage::kFile, tarvo_message::REQUEST));
    VekMessage second;
    ASSERT_TRUE(second.InitialHeader(TarvoMessage::kProperty, tarvo_message::REQUEST));
    EXPECT_EQ(second.GetToken(), first.GetToken() + 1);
    EXPECT_TRUE(second.IsRequest());
    EXPECT_EQ(second.GetTarvoMessage()->message_id(), 7u);

    VekMessage response;
    response.InitialHeader(TarvoMessage::kFile, tarvo_message::RESPONSE);
    VekMessage indication;
    indication.InitialHeader(TarvoMessage::kFile, tarvo_message::INDICATION);
    EXPECT_EQ(response.GetToken(), TokenGen::kNoToken);
    EXPECT_FALSE(response.GetTarvoMessage()->has_token());
    EXPECT_EQ(indication.GetToken(), TokenGen::kNoToken);

    // The next request continues the sequence: responses took nothing from it.
    VekMessage third;
    third.InitialHeader(TarvoMessage::kFile, tarvo_message::REQUEST);
    EXPECT_EQ(third.GetToken(), second.GetToken() + 1);
}

TEST(VekMessageTest, ParsedMessagesNeverDrawTokens) {
    TarvoMessage envelope;
    envelope.set_type(tarvo_message::RESPONSE);
    const std::string bytes = Serialize(envelope);
    VekMessage parsed(bytes.data(), static_cast<int>(bytes.size()));
    parsed.InitialHeader(TarvoMessage::kFile, tarvo_message::REQUEST);
    EXPECT_FALSE(parsed.GetTarvoMessage()->has_token());
}

TEST(VekMessageTest, CloneKeepsTokenAndOutlivesItsSource) {
    auto source = std::make_unique<VekMessage>();
    source->InitialHeader(TarvoMessage::kFile, tarvo_message::REQUEST);
    source->GetTarvoMessage()->mutable_file()->mutable_read_request()->set_file_name("a.bin");
    const uint32_t token = source->GetToken();

    std::unique_ptr<VekMessage> clone = source->Clone();
    source.reset();
    EXPECT_EQ(clone->GetToken(), token);
    EXPECT_EQ(clone->GetTarvoMessage()->file().read_request().file_name(), "a.bin");
    EXPECT_EQ(clone->GetFileOperationId(), 4);
}

TEST(VekMessageTest, AbsentHeaderFieldsReadAsTheirFixedValues) {
    LogCapture log;
    const char garbage[] = {'\xff', '\xff', '\xff', '\x01', '\x07'};
    VekMessage parsed(garbage, sizeof(garbage));
    EXPECT_TRUE(log.Contains(ANDROID_LOG_ERROR, "ParseFromArray failed")) << log.Dump();
    EXPECT_EQ(parsed.GetType(), 0);
    EXPECT_FALSE(parsed.IsRequest() || parsed.IsResponse() || parsed.IsIndication());
    EXPECT_EQ(parsed.GetResult(), tarvo_message::RESULT_FAILURE);
    EXPECT_EQ(parsed.GetToken(), TokenGen::kNoToken);

    VekMessage empty(nullptr, 0);
    EXPECT_EQ(empty.GetTarvoMessage(), nullptr);
    EXPECT_EQ(empty.GetType(), 0);
    EXPECT_EQ(empty.GetMessageId(), 0);
    EXPECT_FALSE(empty.InitialHeader(TarvoMessage::kFile, tarvo_message::REQUEST));
    EXPECT_EQ(empty.GetProtobufSerialDataLength(), 0);
    EXPECT_TRUE(log.Contains(ANDROID_LOG_ERROR, "Message not exist"));
}

TEST(VekMessageTest, OperationIdsBelongToTheirOwnPayloadOnly) {
    VekMessage message;
    message.GetTarvoMessage()->mutable_property()->mutable_read_request();
    EXPECT_EQ(message.GetMessageId(), 7);
    EXPECT_EQ(message.GetFileOperationId(), 0);
    EXPECT_EQ(message.GetUecapFileOperationId(), 0);

    message.GetTarvoMessage()->mutable_uecap_file()->mutable_read_response();
    EXPECT_EQ(message.GetMessageId(), 12);
    EXPECT_EQ(message.GetUecapFileOperationId(), 2);
    EXPECT_EQ(message.GetFileOperationId(), 0);
}

TEST(VekMessageTest, UnknownEnumNumbersSurviveTheWire) {
    TarvoMessage envelope;
    envelope.set_type(static_cast<tarvo_message::TarvoMessageType>(7));
    envelope.mutable_file()->mutable_write_request()->set_file_dir(
        static_cast<tarvo_message::FileDirectory>(7));
    const std::string bytes = Serialize(envelope);
    VekMessage parsed(bytes.data(), static_cast<int>(bytes.size()));
    EXPECT_EQ(parsed.GetType(), 7);
    ASSERT_TRUE(parsed.GetTarvoMessage()->file().write_request().has_file_dir());
    EXPECT_EQ(parsed.GetTarvoMessage()->file().write_request().file_dir(), 7);
}

TEST(VekMessageTest, SerializesToExactlyItsLength) {
    VekMessage message;
    message.InitialHeader(TarvoMessage::kModemStat, tarvo_message::REQUEST);
    message.GetTarvoMessage()->mutable_modem_stat()->mutable_report_request();
    const int length = message.GetProtobufSerialDataLength();
    ASSERT_GT(length, 0);
    std::string buffer(length, '\0');
    ASSERT_TRUE(message.SerializeSendMessage(buffer.data(), length));
    VekMessage parsed(buffer.data(), length);
    EXPECT_EQ(parsed.GetToken(), message.GetToken());
    EXPECT_EQ(parsed.GetMessageId(), 5);

    LogCapture log;
    EXPECT_FALSE(message.SerializeSendMessage(buffer.data(), length - 1));
    EXPECT_TRUE(log.Contains(ANDROID_LOG_ERROR, "SerializeToArray failed!"));
}

}  // namespace tarvo
