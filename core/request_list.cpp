#include "request_list.h"

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

void RequestList::AddRecord(const RequestRecord& record) {
    if (record.GetToken() == TokenGen::kNoToken) return;
    std::lock_guard<std::mutex> guard(lock_);
    records_[record.GetToken()] = record;
}

RequestRecord RequestList::GetRecord(uint32_t token) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = records_.find(token);
    return it != records_.end() ? it->second : RequestRecord();
}

void RequestList::RemoveRecord(uint32_t token) {
    std::lock_guard<std::mutex> guard(lock_);
    records_.erase(token);
}

void RequestList::CleanRecord() {
    std::lock_guard<std::mutex> guard(lock_);
    records_.clear();
}

bool RequestList::IsRecordInList(uint32_t token) {
    std::lock_guard<std::mutex> guard(lock_);
    return records_.count(token) != 0;
}

void RequestList::UpdateResponseMessage(uint32_t token, const VekMessage* message) {
    std::lock_guard<std::mutex> guard(lock_);
    auto it = records_.find(token);
    if (it != records_.end()) it->second.SetResponse(message);
}

}  // namespace tarvo
