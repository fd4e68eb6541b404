#include <unistd.h>

#include <gtest/gtest.h>

#include "host_property_store.h"

#include "service_capture.h"
#include "tarvo_property_message.h"
#include "tarvo_service_handler.h"

namespace tarvo {

using tarvo_message::PropertyMessage;
using tarvo_message::TarvoMessage;

TEST(TarvoPropertyMessageTest, ResponseCarriesTheRequestTokenOrNone) {
    auto with_token = Received("type: REQUEST token: 41 property {}");
    TarvoPropertyMessage answer(tarvo_message::RESPONSE, with_token.get());
    const TarvoMessage& envelope = *answer.GetVekMessage()->GetTarvoMessage();
    EXPECT_EQ(envelope.type(), tarvo_message::RESPONSE);
    EXPECT_EQ(envelope.message_id(), 7u);
    ASSERT_TRUE(envelope.has_token());
    EXPECT_EQ(envelope.token(), 41u);
    EXPECT_FALSE(envelope.has_result());

    auto without_token = Received("type: REQUEST property {}");
    TarvoPropertyMessage silent(tarvo_message::RESPONSE, without_token.get());
    EXPECT_FALSE(silent.GetVekMessage()->GetTarvoMessage()->has_token());
}

// Outside the host sandbox the property store's directory does not exist, so every read and
// write fails as a refused one does on a device. The success paths run end to end.
class PropertyRequestTest : public ServiceHandlerTest {
  protected:
    void SetUp() override {
        if (access(HostPropertyStore::kDefaultDir, F_OK) == 0) {
            GTEST_SKIP() << "a property store exists here; covered end to end";
        }
    }
};

TEST_F(PropertyRequestTest, FailedReadAnswersResultSevenWithAnEmptyValue) {
    auto request = Received(
        R"(type: REQUEST token: 9 property { read_request { name: "vendor.tarvo.none" } })");

    EXPECT_EQ(service_.OnReceivePropertyRequest(request.get()), 0u);

    ASSERT_EQ(handler_.Responses().size(), 1u);
    const TarvoMessage& answer = handler_.Response(0);
    EXPECT_EQ(answer.token(), 9u);
    EXPECT_EQ(answer.result(), tarvo_message::RESULT_IO_ERROR);
    ASSERT_EQ(answer.property().Property_case(), PropertyMessage::kReadResponse);
    EXPECT_TRUE(answer.property().read_response().has_value());
    EXPECT_EQ(answer.property().read_response().value(), "");
    EXPECT_EQ(
        log_.Lines(),
        (std::vector<LogLine>{{ANDROID_LOG_ERROR, "Failed to read property vendor.tarvo.none"}}));
}

TEST_F(PropertyRequestTest, RefusedWriteAnswersResultSevenWithAWriteResponse) {
    auto request = Received(
        R"(type: REQUEST property { write_request { name: "vendor.tarvo.x" value: "on" } })");

    EXPECT_EQ(service_.OnReceivePropertyRequest(request.get()), 0u);

    ASSERT_EQ(handler_.Responses().size(), 1u);
    const TarvoMessage& answer = handler_.Response(0);
    EXPECT_FALSE(answer.has_token());
    EXPECT_EQ(answer.result(), tarvo_message::RESULT_IO_ERROR);
    EXPECT_EQ(answer.property().Property_case(), PropertyMessage::kWriteResponse);
    EXPECT_EQ(log_.Lines(),
              (std::vector<LogLine>{
                  {ANDROID_LOG_ERROR, "Failed to write property vendor.tarvo.x with value on"}}));
}

TEST_F(PropertyRequestTest, UnhandledMessagesGetNoAnswer) {
    const char* const unhandled[] = {
        "type: REQUEST token: 3 property {}",
        "type: REQUEST token: 3 property { read_response { value: \"x\" } }",
        "type: REQUEST token: 3 property { write_response {} }",
        "type: REQUEST token: 3 modem_temperature { set_request {} }",
        "type: REQUEST token: 3",
    };
    for (const char* text : unhandled) {
        auto request = Received(text);
        EXPECT_EQ(service_.OnReceivePropertyRequest(request.get()), 2u) << text;
    }
    VekMessage no_envelope(nullptr, 0);
    EXPECT_EQ(service_.OnReceivePropertyRequest(&no_envelope), 2u);
    EXPECT_EQ(service_.OnReceivePropertyRequest(nullptr), 2u);
    EXPECT_EQ(handler_.Attempts(), 0u);
    EXPECT_TRUE(log_.Lines().empty());
}

TEST_F(PropertyRequestTest, TheSendStatusIsReturned) {
    handler_.FailFrom(0);
    auto request = Received(R"(type: REQUEST property { read_request { name: "a" } })");
    EXPECT_EQ(service_.OnReceivePropertyRequest(request.get()), 7u);
}

}  // namespace tarvo
