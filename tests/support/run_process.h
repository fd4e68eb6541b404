#pragma once

#include <string>
#include <vector>

struct ProcessResult {
    int exit_status = -1;  // -1 when the process did not exit normally
    std::string out;
    std::string err;
};

// Runs a program to its end with extra environment entries ("NAME=value") and captures its output.
ProcessResult RunProcess(const std::vector<std::string>& argv,
                         const std::vector<std::string>& env = {});
