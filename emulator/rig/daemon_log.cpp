#include "rig/daemon_log.h"

#include <android/log.h>

#include <string>

#include <android-base/strings.h>

namespace tarvo_emu {

bool IsDaemonStarted(const LogLine& line) {
    return line.tag == kDaemonTag && line.priority == ANDROID_LOG_INFO && line.text == kStartedText;
}

bool IsOnlineReport(const LogLine& line) {
    return line.tag == kDaemonTag && line.priority == ANDROID_LOG_INFO &&
           android::base::StartsWith(line.text, kStateChangePrefix) &&
           android::base::EndsWith(line.text, " to " + std::to_string(kModemOnline));
}

}  // namespace tarvo_emu
