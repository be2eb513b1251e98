// The same chain in GStreamer: fakesrc -> K elements -> fakesink, with buffers as large as a trace,
// beside the floor hop. The elements are `identity`, which passes buffers on (as traces are moved),
// or a transform that copies each buffer into a new one (as traces are copied).
#include "FloorChain.h"

#include <gst/base/gstbasetransform.h>
#include <gst/gst.h>

#include <cstring>

namespace {

using namespace bench;

constexpr int buffers = 3000;
constexpr GstClockTime patience = 20 * GST_SECOND;
constexpr int bufferBytes = samplesPerTrace * static_cast<int>(sizeof(float)) + headerBytes;

// ---- The element that copies ----

struct BenchCopy
{
    GstBaseTransform parent;
};

struct BenchCopyClass
{
    GstBaseTransformClass parent;
};

G_DEFINE_TYPE(BenchCopy, bench_copy, GST_TYPE_BASE_TRANSFORM)

GstFlowReturn copy(GstBaseTransform*, GstBuffer* in, GstBuffer* out)
{
    GstMapInfo from;
    GstMapInfo to;
    gst_buffer_map(in, &from, GST_MAP_READ);
    gst_buffer_map(out, &to, GST_MAP_WRITE);
    std::memcpy(to.data, from.data, from.size);
    gst_buffer_unmap(out, &to);
    gst_buffer_unmap(in, &from);
    return GST_FLOW_OK;
}

// Buffers of this chain have no caps to tell a size from: the new one is as large as the other.
GstFlowReturn allocate(GstBaseTransform*, GstBuffer* in, GstBuffer** out)
{
    *out = gst_buffer_new_allocate(nullptr, gst_buffer_get_size(in), nullptr);
    return *out != nullptr ? GST_FLOW_OK : GST_FLOW_ERROR;
}

GstPadTemplate* anything(const char* name, GstPadDirection direction)
{
    GstCaps* caps = gst_caps_new_any();
    GstPadTemplate* pad = gst_pad_template_new(name, direction, GST_PAD_ALWAYS, caps);
    gst_caps_unref(caps);
    return pad;
}

void bench_copy_class_init(BenchCopyClass* type)
{
    GstElementClass* element = GST_ELEMENT_CLASS(type);
    gst_element_class_add_pad_template(element, anything("sink", GST_PAD_SINK));
    gst_element_class_add_pad_template(element, anything("src", GST_PAD_SRC));
    gst_element_class_set_static_metadata(element, "Copy", "Filter", "Copies buffers", "bench");
    GST_BASE_TRANSFORM_CLASS(type)->transform = copy;
    GST_BASE_TRANSFORM_CLASS(type)->prepare_output_buffer = allocate;
}

void bench_copy_init(BenchCopy*) {}

// ---- The chain ----

// Seconds per buffer.
double timePerBuffer(const char* name, int elements)
{
    const std::string source =
        "fakesrc sizetype=2 filltype=2 sizemax=" + std::to_string(bufferBytes) +
        " num-buffers=" + std::to_string(buffers);
    std::string description = source;
    for (int i = 0; i < elements; ++i)
        description += std::string(" ! ") + name;
    description += " ! fakesink sync=false";

    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (pipeline == nullptr || error != nullptr)
        fail(error != nullptr ? error->message : "can not build the pipeline");
    GstBus* bus = gst_element_get_bus(pipeline);
    gst_element_set_state(pipeline, GST_STATE_PAUSED);
    if (gst_element_get_state(pipeline, nullptr, nullptr, patience) != GST_STATE_CHANGE_SUCCESS)
        fail("the pipeline does not start");
    GstMessage* message = nullptr;
    const double seconds = timeOf([&] {
        gst_element_set_state(pipeline, GST_STATE_PLAYING);
        message = gst_bus_timed_pop_filtered(
            bus, patience, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    });
    if (message == nullptr || GST_MESSAGE_TYPE(message) != GST_MESSAGE_EOS)
        fail("the pipeline has failed");
    gst_message_unref(message);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(bus);
    gst_object_unref(pipeline);
    return seconds / buffers;
}

double slope(const std::map<int, Least>& times)
{
    std::map<int, double> points;
    for (const auto& [length, time] : times)
        points[length] = time.get();
    return lineThrough(points).slope;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    const int repetitions = options.repetitions > 0 ? options.repetitions : options.quick ? 5 : 20;
    gst_init(nullptr, nullptr);
    gst_element_register(nullptr, "benchcopy", GST_RANK_NONE, bench_copy_get_type());

    std::map<int, Least> floorTimes;
    std::map<int, Least> identityTimes;
    std::map<int, Least> copyTimes;
    for (int i = 0; i < repetitions; ++i) {
        for (const int length : {1, 2, 4, 8}) {
            FloorChain floor;
            floor.hops = length;
            floor.traces = buffers;
            floorTimes[length].add(run(floor) / buffers);
            identityTimes[length].add(timePerBuffer("identity silent=true", length));
            copyTimes[length].add(timePerBuffer("benchcopy", length));
        }
    }
    const double floor = slope(floorTimes);
    report("peer.gstreamer.moved", slope(identityTimes) / floor,
           {{"peer_ns", slope(identityTimes) * 1e9}, {"floor_ns", floor * 1e9}});
    report("peer.gstreamer.copied", slope(copyTimes) / floor,
           {{"peer_ns", slope(copyTimes) * 1e9}, {"floor_ns", floor * 1e9}});
    return 0;
}
