#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "token_gen.h"
#include "vek_message.h"

namespace tarvo {

// One request awaiting its response. Copies clone the response.
class RequestRecord {
  public:
    explicit RequestRecord(uint32_t token = TokenGen::kNoToken);
    RequestRecord(const RequestRecord& other);
    RequestRecord& operator=(const RequestRecord& other);
    RequestRecord(RequestRecord&&) = default;
    RequestRecord& operator=(RequestRecord&&) = default;
    virtual ~RequestRecord() = default;

    uint32_t GetToken() const { return token_; }
    // Null until the response arrived.
    VekMessage* GetResponse() const { return response_.get(); }
    void SetResponse(const VekMessage* response);

  private:
    uint32_t token_;
    std::unique_ptr<VekMessage> response_;
};

// Outstanding requests by token.
class RequestList {
  public:
    virtual ~RequestList() = default;

    // Records with no token are ignored.
    void AddRecord(const RequestRecord& record);
    // A copy; an empty record when the token is not listed.
    RequestRecord GetRecord(uint32_t token);
    void RemoveRecord(uint32_t token);
    void CleanRecord();
    bool IsRecordInList(uint32_t token);
    // Stores a clone of message for a listed token; does nothing otherwise.
    void UpdateResponseMessage(uint32_t token, const VekMessage* message);

  private:
    // The listed record of `token`, or end(); the caller holds the lock.
    std::vector<RequestRecord>::iterator Find(uint32_t token);

    std::mutex lock_;
    // A handful at most are outstanding at once: a search of a vector that keeps its room beats
    // a map that allocates a node for every request.
    std::vector<RequestRecord> records_;
};

}  // namespace tarvo
