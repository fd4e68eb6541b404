#pragma once

#include <cstdint>
#include <mutex>

namespace tarvo {

// Process-wide source of the tokens that pair a request with its response.
class TokenGen {
  public:
    // The value that marks a message without a token; never handed out.
    static constexpr uint32_t kNoToken = 0xFFFFFFFF;

    explicit TokenGen(uint32_t first = 0) : next_(first) {}
    TokenGen(const TokenGen&) = delete;
    TokenGen& operator=(const TokenGen&) = delete;

    static void Init();
    // Null before Init().
    static TokenGen* GetInstance();

    // 0, 1, ..., 0xFFFFFFFE, 0, ...
    uint32_t GetNext();

  private:
    std::mutex lock_;
    uint32_t next_;
};

}  // namespace tarvo
