#include "soak/request_model.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include <android-base/stringprintf.h>

#include <android-base/strings.h>
#include "device/device_facts.h"

#include "soak/file_transfer_model.h"

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// The directory id of UE-capability files, the highest the request may name.
constexpr uint32_t kUecapDirectoryId = 3;

}  // namespace

RequestModel::RequestModel(const tarvo_scenario::Scenario& setup, const ModelFileSystem& files,
                           ModelSteps& steps)
    : files_(files), steps_(steps) {
    for (const tarvo_scenario::Property& property : setup.property()) {
        properties_[property.name()] = property.value();
    }
}

void RequestModel::Property(const tarvo_message::PropertyMessage& property, uint32_t token) {
    // The platform's rules: a name of letters, digits and "_.-:@" without empty components, a
    // value of at most 91 bytes unless the name starts with "ro.", which is set once.
    constexpr size_t kMaxValue = 91;
    TarvoMessage payload;
    if (property.has_write_request()) {
        const std::string& name = property.write_request().name();
        const std::string& value = property.write_request().value();
        const bool read_only = android::base::StartsWith(name, "ro.");
        bool valid = !name.empty() && name.front() != '.' && name.back() != '.' &&
                     name.find("..") == std::string::npos;
        for (char c : name)
            valid =
                valid && (isalnum(static_cast<unsigned char>(c)) || strchr("_.-:@", c) != nullptr);
        const bool accepted = valid && (value.size() <= kMaxValue || read_only) &&
                              !(read_only && properties_.count(name));
        payload.mutable_property()->mutable_write_response();
        if (accepted) {
            properties_[name] = value;
            steps_.Log(kLogInfo, "Write property " + name + " with value " + value);
        } else {
            steps_.Log(kLogError, "Failed to write property " + name + " with value " + value);
        }
        steps_.Respond(token,
                       accepted ? tarvo_message::RESULT_SUCCESS : tarvo_message::RESULT_IO_ERROR,
                       std::move(payload));
        if (!valid) return;
        Step check;
        check.mutable_expect_property()->set_name(name);
        const auto it = properties_.find(name);
        if (it != properties_.end()) check.mutable_expect_property()->set_value(it->second);
        steps_.Add(std::move(check));
        return;
    }
    if (property.has_read_request()) {
        const std::string& name = property.read_request().name();
        const auto it = properties_.find(name);
        if (it == properties_.end()) {
            steps_.Log(kLogError, "Failed to read property " + name);
            payload.mutable_property()->mutable_read_response()->set_value("");
            steps_.Respond(token, tarvo_message::RESULT_IO_ERROR, std::move(payload));
            return;
        }
        // A long "ro." value is read cut to what a value may hold.
        const std::string value = it->second.substr(0, kMaxValue);
        steps_.Log(kLogInfo, "Read property " + name + " with value " + value);
        payload.mutable_property()->mutable_read_response()->set_value(value);
        steps_.Respond(token, tarvo_message::RESULT_SUCCESS, std::move(payload));
        return;
    }
    steps_.Ping();
}

void RequestModel::Temperature(const tarvo_message::ModemTemperatureMessage& temperature,
                               uint32_t token) {
    Step writes;
    for (const tarvo_message::ModemTemperatureSensor& sensor :
         temperature.set_request().sensors()) {
        steps_.Log(kLogDebug,
                   StringPrintf("Temp sensor %d - Update %d - Temperature %d",
                                static_cast<int>(sensor.sensor()), sensor.update() ? 1 : 0,
                                static_cast<int>(sensor.temperature())));
        writes.mutable_expect_thermal_writes()->add_write(
            StringPrintf("%llu %d %lld\n", (unsigned long long)sensor.sensor(),
                         sensor.update() ? 1 : 0, (long long)sensor.temperature()));
    }
    TarvoMessage payload;
    payload.mutable_modem_temperature()->mutable_set_response();
    // The answer carries no result, whatever became of the readings.
    steps_.Respond(token, -1, std::move(payload));
    writes.mutable_expect_thermal_writes();
    steps_.Add(std::move(writes));
}

void RequestModel::UecapRead(const tarvo_message::UecapFileMessage& uecap, uint32_t token) {
    const tarvo_message::UecapFileReadRequest& request = uecap.read_request();
    const auto respond_failure = [this, token](int result, int uecap_result) {
        TarvoMessage payload;
        tarvo_message::UecapFileReadResponse* response =
            payload.mutable_uecap_file()->mutable_read_response();
        response->set_data("");
        response->set_offset(0);
        response->set_last(false);
        response->set_result(static_cast<tarvo_message::UecapFileMessageResult>(uecap_result));
        steps_.Respond(token, result, std::move(payload));
    };
    steps_.Log(kLogInfo, "Got Uecap File Read request");
    if (!request.has_file_name() || !request.has_directory() || request.directory() < 1 ||
        static_cast<uint32_t>(request.directory()) > kUecapDirectoryId) {
        steps_.Log(kLogError, "The incoming request has bad format");
        respond_failure(tarvo_message::RESULT_BAD_FORMAT, tarvo_message::UECAP_RESULT_BAD_FORMAT);
        return;
    }
    const ModelFileSystem::File* file = nullptr;
    if (request.directory() == kUecapDirectoryId) {
        const std::string directory = *FileDirectory(kUecapDirectoryId);
        const std::string path = directory + request.file_name();
        steps_.Log(kLogInfo, "prefix: " + directory + " file_name: " + request.file_name());
        const std::optional<std::string> resolved = files_.Resolve(path);
        if (resolved) file = files_.Find(*resolved);
    }
    if (file == nullptr) {
        steps_.Log(kLogError, "UECap File Read failed.");
        respond_failure(tarvo_message::RESULT_FAILURE, tarvo_message::UECAP_RESULT_READ_FAILED);
        return;
    }
    const uint32_t size = std::min<uint64_t>(request.read_size(), file->content.size());
    steps_.Log(kLogInfo, StringPrintf("file size: %zu, read size: %u, requested read size: %u",
                                      file->content.size(), size, request.read_size()));
    const uint32_t block_size = request.block_size();
    for (uint32_t offset = 0, block = 0; offset < size; offset += block_size, ++block) {
        const uint32_t length = std::min(size - offset, block_size);
        TarvoMessage payload;
        tarvo_message::UecapFileReadResponse* response =
            payload.mutable_uecap_file()->mutable_read_response();
        response->set_data(file->content.substr(offset, length));
        response->set_offset(offset);
        response->set_result(tarvo_message::UECAP_RESULT_SUCCESS);
        response->set_last(uint64_t{offset} + block_size >= size);
        steps_.Log(kLogInfo, StringPrintf("Send response with offset: %u, data size: %u, token: %u",
                                          offset, length, token + block + 1));
        steps_.Respond(token + block, tarvo_message::RESULT_SUCCESS, std::move(payload));
    }
    steps_.Log(kLogInfo, "Succeeded to send all blocks of file");
    // Nothing may be sent at all: the ping shows the request handled.
    if (size == 0) steps_.Ping();
}

}  // namespace tarvo_emu
