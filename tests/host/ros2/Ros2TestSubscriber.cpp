// A ROS 2 subscriber built from the same message definitions as the publisher, subscribing as a
// ROS 2 node does (XCDR1 only; /tf and /diagnostics reliable, poses and fiducials best effort) on
// the loopback configuration. It prints every sample it takes as one line on stdout and ends when
// its stdin closes, after taking what is left.
//
//     ros2_test_subscriber DOMAIN NAMESPACE TOOL...
//
// Lines: "ready" once its readers exist, then
//     tf SEC NANOSEC PARENT CHILD TX TY TZ QX QY QZ QW
//     pose TOOL SEC NANOSEC FRAME PX PY PZ QX QY QZ QW
//     cloud SEC NANOSEC FRAME HEIGHT WIDTH POINT_STEP ROW_STEP BIGENDIAN DENSE FIELDS X Y Z...
//     diag NAME|LEVEL|MESSAGE|HARDWARE_ID|KEY=VALUE;...
#include "host/ros2/Ros2DomainConfig.h"
#include "host/ros2/Ros2Names.h"
#include "host/ros2/Ros2Settings.h"

#include "diagnostic_msgs/msg/DiagnosticArray.h"
#include "geometry_msgs/msg/PoseStamped.h"
#include "sensor_msgs/msg/PointCloud2.h"
#include "tf2_msgs/msg/TFMessage.h"

#include <dds/dds.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

dds_entity_t reader(dds_entity_t participant, const dds_topic_descriptor_t& type, const std::string& name,
                    bool reliable) {
    const dds_entity_t topic = dds_create_topic(participant, &type, name.c_str(), nullptr, nullptr);
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, reliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT, DDS_SECS(1));
    dds_qset_durability(qos, DDS_DURABILITY_VOLATILE);
    // Keeps every sample until taken, so that the test sees all that arrived.
    dds_qset_history(qos, DDS_HISTORY_KEEP_ALL, 0);
    dds_data_representation_id_t xcdr1 = DDS_DATA_REPRESENTATION_XCDR1;
    dds_qset_data_representation(qos, 1, &xcdr1);
    const dds_entity_t result = dds_create_reader(participant, topic, qos, nullptr);
    dds_delete_qos(qos);
    if (result < 0) {
        std::fprintf(stderr, "no reader for %s: %s\n", name.c_str(), dds_strretcode(result));
        std::exit(2);
    }
    return result;
}

/// Takes every sample of `reader` and prints each with `print`.
template <class Message, class Print>
void takeAll(dds_entity_t reader, Print print) {
    void* samples[16] = {};
    dds_sample_info_t infos[16];
    for (;;) {
        const dds_return_t count = dds_take(reader, samples, infos, 16, 16);
        if (count <= 0)
            return;
        for (dds_return_t i = 0; i < count; ++i)
            if (infos[i].valid_data)
                print(*static_cast<const Message*>(samples[i]));
        dds_return_loan(reader, samples, count);
    }
}

void printTf(const tf2_msgs_msg_dds__TFMessage_& message) {
    for (std::uint32_t i = 0; i < message.transforms_._length; ++i) {
        const auto& t = message.transforms_._buffer[i];
        const auto& tr = t.transform_.translation_;
        const auto& q = t.transform_.rotation_;
        std::printf("tf %d %u %s %s %.17g %.17g %.17g %.17g %.17g %.17g %.17g\n", t.header_.stamp_.sec_,
                    t.header_.stamp_.nanosec_, t.header_.frame_id_, t.child_frame_id_, tr.x_, tr.y_, tr.z_,
                    q.x_, q.y_, q.z_, q.w_);
    }
}

void printPose(const std::string& tool, const geometry_msgs_msg_dds__PoseStamped_& message) {
    const auto& p = message.pose_.position_;
    const auto& q = message.pose_.orientation_;
    std::printf("pose %s %d %u %s %.17g %.17g %.17g %.17g %.17g %.17g %.17g\n", tool.c_str(),
                message.header_.stamp_.sec_, message.header_.stamp_.nanosec_, message.header_.frame_id_, p.x_,
                p.y_, p.z_, q.x_, q.y_, q.z_, q.w_);
}

void printCloud(const sensor_msgs_msg_dds__PointCloud2_& message) {
    std::string fields;
    for (std::uint32_t i = 0; i < message.fields_._length; ++i) {
        const auto& f = message.fields_._buffer[i];
        fields += (i ? "," : "") + std::string(f.name_) + ":" + std::to_string(f.offset_) + ":" +
                  std::to_string(f.datatype_) + ":" + std::to_string(f.count_);
    }
    std::printf("cloud %d %u %s %u %u %u %u %d %d %s", message.header_.stamp_.sec_,
                message.header_.stamp_.nanosec_, message.header_.frame_id_, message.height_, message.width_,
                message.point_step_, message.row_step_, message.is_bigendian_ ? 1 : 0,
                message.is_dense_ ? 1 : 0, fields.c_str());
    for (std::uint32_t i = 0; i + 4 <= message.data_._length; i += 4) {
        float value = 0;
        std::memcpy(&value, message.data_._buffer + i, 4);
        std::printf(" %.9g", value);
    }
    std::printf("\n");
}

void printDiagnostics(const diagnostic_msgs_msg_dds__DiagnosticArray_& message) {
    for (std::uint32_t i = 0; i < message.status_._length; ++i) {
        const auto& s = message.status_._buffer[i];
        std::string values;
        for (std::uint32_t v = 0; v < s.values_._length; ++v)
            values +=
                std::string(v ? ";" : "") + s.values_._buffer[v].key_ + "=" + s.values_._buffer[v].value_;
        std::printf("diag %s|%d|%s|%s|%s\n", s.name_, s.level_, s.message_, s.hardware_id_, values.c_str());
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s DOMAIN NAMESPACE TOOL...\n", argv[0]);
        return 2;
    }
    Kestrion::Ros2::Ros2Settings settings;
    settings.domainId = std::atoi(argv[1]);
    settings.nameSpace = argv[2];
    std::string error;
    const auto domain = Kestrion::Ros2::Ros2DomainConfig::make(settings, nullptr, nullptr, &error);
    if (!domain || dds_create_domain(domain->domainId, domain->configuration.c_str()) < 0) {
        std::fprintf(stderr, "no domain: %s\n", error.c_str());
        return 2;
    }
    const dds_entity_t participant = dds_create_participant(domain->domainId, nullptr, nullptr);
    using Names = Kestrion::Ros2::Ros2Names;
    const dds_entity_t tf = reader(participant, tf2_msgs_msg_dds__TFMessage__desc, Names::TfTopic, true);
    const dds_entity_t diagnostics =
        reader(participant, diagnostic_msgs_msg_dds__DiagnosticArray__desc, Names::DiagnosticsTopic, true);
    const dds_entity_t cloud = reader(participant, sensor_msgs_msg_dds__PointCloud2__desc,
                                      Names::fiducialsTopic(settings.nameSpace), false);
    std::vector<std::pair<std::string, dds_entity_t>> poses;
    for (int i = 3; i < argc; ++i)
        poses.emplace_back(argv[i], reader(participant, geometry_msgs_msg_dds__PoseStamped__desc,
                                           Names::poseTopic(settings.nameSpace, argv[i]), false));
    std::printf("ready\n");
    std::fflush(stdout);

    for (bool open = true; open;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, 5) > 0) {
            char buffer[256];
            open = ::read(STDIN_FILENO, buffer, sizeof buffer) > 0;
        }
        takeAll<tf2_msgs_msg_dds__TFMessage_>(tf, printTf);
        for (const auto& [tool, poseReader] : poses)
            takeAll<geometry_msgs_msg_dds__PoseStamped_>(
                poseReader,
                [&tool = tool](const geometry_msgs_msg_dds__PoseStamped_& m) { printPose(tool, m); });
        takeAll<sensor_msgs_msg_dds__PointCloud2_>(cloud, printCloud);
        takeAll<diagnostic_msgs_msg_dds__DiagnosticArray_>(diagnostics, printDiagnostics);
        std::fflush(stdout);
    }
    dds_delete(participant);
    return 0;
}
