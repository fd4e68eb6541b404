#include "token_gen.h"

namespace tarvo {

namespace {
TokenGen* instance = nullptr;
}

void TokenGen::Init() {
    if (instance == nullptr) instance = new TokenGen();
}

TokenGen* TokenGen::GetInstance() { return instance; }

uint32_t TokenGen::GetNext() {
    std::lock_guard<std::mutex> guard(lock_);
    const uint32_t value = next_;
    next_ = (value + 1 == kNoToken) ? 0 : value + 1;
    return value;
}

}  // namespace tarvo
