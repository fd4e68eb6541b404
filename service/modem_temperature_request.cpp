#include <fstream>

#include <log/log.h>

#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"
#include "vek_message.h"

namespace tarvo {

using tarvo_message::ModemTemperatureMessage;

namespace {

constexpr const char* kModemTemperatureDriver = "/sys/devices/platform/cp-tm1/cp_temp";

// The driver takes one "sensor update temperature" line per write.
void WriteSensorReadings(const tarvo_message::ModemTemperatureSetRequest& set_request) {
    std::ofstream driver(kModemTemperatureDriver);
    if (!driver.is_open()) {
        ALOGE("Failed to open modem temperature driver");
        return;
    }
    for (const auto& reading : set_request.sensors()) {
        const int update = reading.update() ? 1 : 0;
        ALOGD("Temp sensor %d - Update %d - Temperature %d", static_cast<int>(reading.sensor()),
              update, static_cast<int>(reading.temperature()));
        driver << reading.sensor() << ' ' << update << ' ' << reading.temperature() << '\n';
        driver.flush();
    }
}

}  // namespace

unsigned int TarvoServiceHandler::OnReceiveModemTemperatureRequest(VekMessage* request) {
    if (request == nullptr || request->GetTarvoMessage() == nullptr ||
        request->GetMessageId() != tarvo_message::TarvoMessage::kModemTemperature) {
        return tarvo_message::RESULT_INVALID;
    }
    const ModemTemperatureMessage& temperature = request->GetTarvoMessage()->modem_temperature();
    if (temperature.ModemTemperature_case() != ModemTemperatureMessage::kSetRequest) {
        return tarvo_message::RESULT_INVALID;
    }

    WriteSensorReadings(temperature.set_request());

    // No result field, even when the driver could not be opened: the modem is not told.
    VekMessage response;
    response.InitialHeader(tarvo_message::TarvoMessage::kModemTemperature, tarvo_message::RESPONSE);
    auto* envelope = response.GetTarvoMessage();
    if (request->GetTarvoMessage()->has_token()) {
        envelope->set_token(request->GetTarvoMessage()->token());
    }
    envelope->mutable_modem_temperature()->mutable_set_response();
    return handler_->SendResponse(&response);
}

}  // namespace tarvo
