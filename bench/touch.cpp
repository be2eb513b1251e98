// What it costs to make a trace the most recently used one, beside an intrusive list, and how that
// grows with the number of resident traces.
//
// The oldest trace is touched each time, as by modules that take traces in the order in which they
// came: never the one in front.
#include "Measure.h"

#include "JobManager.h"
#include "ScratchManager.h"
#include "SeisTrace.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

using namespace bench;

constexpr int noPaging = 10000000;

struct Sizes
{
    int samples;
    int header; // bytes
};

constexpr Sizes whole = {samplesPerTrace, headerBytes};
// For growth: hundreds of thousands of whole traces would measure how the machine's tables of pages
// grow, which the list beside them shows to be most of it.
constexpr Sizes tiny = {1, 8};

// A list of traces with links in them, and nothing else. As large as the kernel's trace and with
// the same blocks beside it in the heap: what is compared is the order, not the caches.
struct Node
{
    Node* newer;
    Node* older;
    void* blocks[2];
    char room[sizeof(SeisTrace) - 4 * sizeof(void*)];
};

class FloorList
{
public:
    FloorList(int count, Sizes sizes)
    {
        const std::size_t bytes[2] = {static_cast<std::size_t>(sizes.samples) * sizeof(float),
                                      static_cast<std::size_t>(sizes.header)};
        for (int i = 0; i < count; ++i) {
            Node* node = static_cast<Node*>(std::calloc(1, sizeof(Node)));
            for (int block = 0; block < 2; ++block) {
                node->blocks[block] = std::malloc(bytes[block]);
                std::memset(node->blocks[block], 0, bytes[block]);
            }
            nodes.push_back(node);
            pushFront(node);
        }
    }
    ~FloorList()
    {
        for (Node* node : nodes) {
            std::free(node->blocks[0]);
            std::free(node->blocks[1]);
            std::free(node);
        }
    }
    FloorList(const FloorList&) = delete;
    FloorList& operator=(const FloorList&) = delete;

    void touch(int i)
    {
        Node* node = nodes[static_cast<std::size_t>(i)];
        if (node == first)
            return;
        node->newer->older = node->older;
        (node->older != nullptr ? node->older->newer : last) = node->newer;
        pushFront(node);
    }

private:
    void pushFront(Node* node)
    {
        node->newer = nullptr;
        node->older = first;
        (first != nullptr ? first->newer : last) = node;
        first = node;
    }

    std::vector<Node*> nodes;
    Node* first = nullptr;
    Node* last = nullptr;
};

class KernelTraces
{
public:
    KernelTraces(int count, Sizes sizes) : manager(ScratchManager::getInstance())
    {
        ScratchManager::MAX_TRACES_IN_SCRATCH_V = noPaging;
        for (int i = 0; i < count; ++i) {
            traces.push_back(std::make_unique<SeisTrace>(sizes.samples, sizes.header));
            manager->touchTrace(traces.back().get());
        }
    }
    void touch(int i) { manager->touchTrace(traces[static_cast<std::size_t>(i)].get()); }

private:
    ScratchManager* manager;
    std::vector<std::unique_ptr<SeisTrace>> traces;
};

template <typename Traces>
double timeOfTouch(Traces& traces, int count)
{
    const int rounds = std::max(1, 100000 / count);
    const double seconds = timeOf([&] {
        for (int i = 0; i < rounds; ++i) {
            for (int trace = 0; trace < count; ++trace)
                traces.touch(trace);
        }
    });
    return seconds / count / rounds;
}

struct Times
{
    double kernel; // seconds per touch
    double floor;
};

Times timesWith(int resident, Sizes sizes, int repetitions)
{
    Least kernelTime;
    Least floorTime;
    KernelTraces kernel(resident, sizes);
    FloorList floor(resident, sizes);
    for (int i = 0; i < repetitions; ++i) {
        floorTime.add(timeOfTouch(floor, resident));
        kernelTime.add(timeOfTouch(kernel, resident));
    }
    return {kernelTime.get(), floorTime.get()};
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    const int repetitions = options.repetitions > 0 ? options.repetitions : options.quick ? 5 : 20;
    if (options.curves) {
        for (const int resident : {10, 100, 1000, 10000, 100000}) {
            const Times times = timesWith(resident, tiny, repetitions);
            reportPoint("touch.kernel", resident, times.kernel * 1e9);
            reportPoint("touch.floor", resident, times.floor * 1e9);
        }
        return 0;
    }

    const Times many = timesWith(manyTraces, whole, repetitions);
    const Times few = timesWith(1000, tiny, repetitions);
    const Times most = timesWith(100000, tiny, repetitions);
    report("touch", many.kernel / many.floor,
           {{"kernel_ns", many.kernel * 1e9}, {"floor_ns", many.floor * 1e9}});
    report("touch.growth", most.kernel / few.kernel,
           {{"of100000_ns", most.kernel * 1e9},
            {"of1000_ns", few.kernel * 1e9},
            {"floor_growth", most.floor / few.floor}});
    return 0;
}
