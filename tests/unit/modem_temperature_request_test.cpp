#include <gtest/gtest.h>

#include "service_capture.h"
#include "tarvo_service_handler.h"

namespace tarvo {

using ModemTemperatureRequestTest = ServiceHandlerTest;

TEST_F(ModemTemperatureRequestTest, OnlySetRequestsAreHandled) {
    const char* const unhandled[] = {
        "type: REQUEST token: 3 modem_temperature {}",
        "type: REQUEST token: 3 modem_temperature { set_response {} }",
        "type: REQUEST token: 3 property { read_request {} }",
    };
    for (const char* text : unhandled) {
        auto request = Received(text);
        EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(request.get()), 2u) << text;
    }
    VekMessage no_envelope(nullptr, 0);
    EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(&no_envelope), 2u);
    EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(nullptr), 2u);
    EXPECT_EQ(handler_.Attempts(), 0u);
    EXPECT_TRUE(log_.Lines().empty());
}

}  // namespace tarvo
