#include "request_list.h"

#include <algorithm>

namespace tarvo {

RequestRecord::RequestRecord(uint32_t token) : token_(token) {}

RequestRecord::RequestRecord(const RequestRecord& other) : token_(other.token_) {
    SetResponse(other.response_.get());
}

RequestRecord& RequestRecord::operator=(const RequestRecord& other) {
    if (this != &other) {
        token_ = other.token_;
        SetResponse(other.response_.get());
    }
    return *this;
}

void RequestRecord::SetResponse(const VekMessage* response) {
    response_ = response != nullptr ? response->Clone() : nullptr;
}

std::vector<RequestRecord>::iterator RequestList::Find(uint32_t token) {
    return std::find_if(records_.begin(), records_.end(), [token](const RequestRecord& record) {
        return record.GetToken() == token;
    });
}

void RequestList::AddRecord(const RequestRecord& record) {
    if (record.GetToken() == TokenGen::kNoToken) return;
    std::lock_guard<std::mutex> guard(lock_);
    auto it = Find(record.GetToken());
    if (it != records_.end()) {
        *it = record;
    } else {
        records_.push_back(record);
    }
}

RequestRecord RequestList::GetRecord(uint32_t token) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = Find(token);
    return it != records_.end() ? *it : RequestRecord();
}

void RequestList::RemoveRecord(uint32_t token) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = Find(token);
    if (it == records_.end()) return;
    // The order of the records means nothing.
    if (it != records_.end() - 1) *it = std::move(records_.back());
    records_.pop_back();
}

void RequestList::CleanRecord() {
    std::lock_guard<std::mutex> guard(lock_);
    records_.clear();
}

bool RequestList::IsRecordInList(uint32_t token) {
    std::lock_guard<std::mutex> guard(lock_);
    return Find(token) != records_.end();
}

void RequestList::UpdateResponseMessage(uint32_t token, const VekMessage* message) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = Find(token);
    if (it != records_.end()) it->SetResponse(message);
}

}  // namespace tarvo
