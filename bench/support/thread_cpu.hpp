#pragma once

// The CPU time of a benchmark's threads, by the names they give themselves.

#include <dirent.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

namespace ovex::bench {

// CPU seconds of this process's threads named `name`, user and system.
inline double ThreadCpuSeconds(const std::string& name) {
    static const double kTicks = static_cast<double>(sysconf(_SC_CLK_TCK));
    double seconds = 0;
    DIR* tasks = opendir("/proc/self/task");
    if (tasks == nullptr) {
        return 0;
    }
    while (const dirent* entry = readdir(tasks)) {
        const std::string dir = std::string("/proc/self/task/") + entry->d_name;
        std::ifstream comm(dir + "/comm");
        std::string thread;
        if (!std::getline(comm, thread) || thread != name) {
            continue;
        }
        std::ifstream stat(dir + "/stat");
        std::string line;
        std::getline(stat, line);
        // Fields after the name in parentheses; utime and stime are the 12th and 13th of them.
        std::istringstream rest(line.substr(line.rfind(')') + 2));
        std::string field;
        double utime = 0;
        double stime = 0;
        for (int i = 1; i <= 13 && rest >> field; ++i) {
            if (i == 12) {
                utime = std::stod(field);
            } else if (i == 13) {
                stime = std::stod(field);
            }
        }
        seconds += (utime + stime) / kTicks;
    }
    closedir(tasks);
    return seconds;
}

}  // namespace ovex::bench
