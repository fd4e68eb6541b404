#pragma once

namespace tarvo {

// How a family names its request in the log while sending it and on the modem's answer.
struct ModemRequestTexts {
    const char* sending;    // info, before the request goes out
    const char* succeeded;  // info, the modem answered with RESULT_SUCCESS
    const char* failed;     // error, the modem answered with any other result
};

}  // namespace tarvo
