#include <getopt.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <exception>
#include <fstream>
#include <string>

#include <android-base/file.h>
#include <android-base/logging.h>
#include <log/log.h>

#include "server_signals.h"
#include "tarvo_message_handler.h"

namespace tarvo {
namespace {

constexpr const char* kPidFile = "/data/vendor/radio/tarvo_pid";

// One byte each; a flag counts as set only when it equals 1.
unsigned char modem_stat_flag = 0;
unsigned char extended_log_flag = 0;
unsigned char tput_test_flag = 0;
unsigned char server_flag = 0;

const option kOptions[] = {
    {"modemstat", no_argument, nullptr, 'm'},
    {"extendedlog", no_argument, nullptr, 'e'},
    {"tputtest", no_argument, nullptr, 't'},
    {"server", no_argument, nullptr, 's'},
    {nullptr, 0, nullptr, 0},
};

void PrintUsage(const char* program) {
    printf("\nUsage for %s:\n", program);
    puts("\n-m, --modemstat:   Send modem stat request to modem");
    puts("\n-e, --extendedlog: Send extended log request to modem");
    puts("\n-t, --ipctputtest: Start IPC Tput test");
    puts("\n-s, --server:      Start message handler server");
    puts("\n-h, --help:        Usage help");
}

}  // namespace

void tarvo_signal_handler(int signal) {
    // The work below may fail and set errno, which belongs to the thread that was interrupted.
    const int saved_errno = errno;
    switch (signal) {
        case SIGUSR1:
            TarvoMessageHandler::GetInstance()->SendServiceRequest(
                TarvoMessageHandler::kModemStatReport);
            break;
        case SIGUSR2:
            TarvoMessageHandler::GetInstance()->SendServiceRequest(
                TarvoMessageHandler::kExtendedLog);
            break;
        case SIGWINCH:
            TarvoMessageHandler::GetInstance()->TputTestStartRequest();
            break;
        default:
            break;
    }
    errno = saved_errno;
}

int tarvo_get_pid() {
    std::string text;
    if (!android::base::ReadFileToString(kPidFile, &text, /*follow_symlinks=*/true)) {
        ALOGE("Unable to access pid file");
        return -1;
    }
    try {
        return std::stoi(text, nullptr, 10);
    } catch (const std::exception& e) {
        ALOGE("%s", e.what());
        return -1;
    }
}

namespace {

// Signals the running server; false when its pid cannot be found.
bool SignalServer(int signal, const char* message) {
    const int pid = tarvo_get_pid();
    if (pid < 1) {
        ALOGE("Failed to get pid");
        return false;
    }
    ALOGI("%s", message);
    kill(pid, signal);
    return true;
}

// Created with the process umask; a failure is silent. A write that fails (a full /data) leaves
// the file empty, so a client reports the unreadable number rather than a missing file.
void WritePidFile() {
    remove(kPidFile);
    std::ofstream file(kPidFile);
    file << getpid();
}

}  // namespace
}  // namespace tarvo

int main(int argc, char** argv) {
    using namespace tarvo;
#ifndef __ANDROID__
    // A host has no logd to filter by tag: liblog prints every priority to stderr.
    android::base::SetMinimumLogSeverity(android::base::VERBOSE);
#endif
    if (argc == 1) {
        PrintUsage(argv[0]);
        return -1;
    }

    int option;
    while ((option = getopt_long(argc, argv, "hmest", kOptions, nullptr)) != -1) {
        switch (option) {
            case 'm':
                modem_stat_flag = 1;
                break;
            case 'e':
                extended_log_flag = 1;
                break;
            case 't':
                tput_test_flag = 1;
                break;
            case 's':
                server_flag = 1;
                break;
            default:
                PrintUsage(argv[0]);
                break;
        }
    }

    install_server_signal_handler(tarvo_signal_handler);

    if (modem_stat_flag == 1 && !SignalServer(SIGUSR1, "Send signal for modemstat request")) {
        return -1;
    }
    if (extended_log_flag == 1 && !SignalServer(SIGUSR2, "Send signal for extendedlog request")) {
        return -1;
    }
    if (tput_test_flag == 1 && !SignalServer(SIGWINCH, "Send signal for tput test")) {
        return -1;
    }

    if (server_flag != 1) {
        ALOGE("Force to exit");
        return 0;
    }

    {
        // A signal that comes while the components are being built is handled once they are.
        ScopedServerSignalBlock block;
        if (TarvoMessageHandler::GetInstance()->Start() != 0) {
            ALOGE("Failed to start message handler");
            return -1;
        }
        WritePidFile();
    }

    while (true) sleep(UINT_MAX);
}
