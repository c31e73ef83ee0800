// A race seeded into a pipeline stage: the stage writes a plain variable that another thread
// reads with nothing to order the two. Run under the race detector with the project's
// suppressions, it must be reported; a suppression that hid races in stage code would hide it.

#include <atomic>
#include <cstdio>
#include <thread>

#include <oneapi/tbb/parallel_pipeline.h>

namespace {

int g_seeded = 0;
std::atomic<bool> g_written{false};

}  // namespace

int main() {
    std::thread reader([] {
        while (!g_written.load(std::memory_order_relaxed)) {
            std::this_thread::yield();
        }
        std::printf("read %d\n", g_seeded);
    });
    int items = 0;
    tbb::parallel_pipeline(
        2, tbb::make_filter<void, int>(tbb::filter_mode::serial_in_order,
                                       [&items](tbb::flow_control& control) {
                                           if (items == 1) {
                                               control.stop();
                                           }
                                           return ++items;
                                       }) &
               tbb::make_filter<int, void>(tbb::filter_mode::serial_in_order, [](int item) {
                   g_seeded = item;
                   g_written.store(true, std::memory_order_relaxed);
               }));
    reader.join();
    return 0;
}
