// The receiving end of the ROS 2 publisher's benchmark: a /tf subscriber (reliable, XCDR1, on
// the loopback configuration) in its own process, blocked on a wait set, that notes for each
// message the delay from its stamp (the emission time on CLOCK_MONOTONIC, set by the benchmark)
// to its receipt, and prints the median and the 99th percentile when its stdin closes.
//
//     bench_host_ros2_receiver DOMAIN
#include "host/ros2/Ros2DomainConfig.h"
#include "host/ros2/Ros2Names.h"
#include "host/ros2/Ros2Settings.h"

#include "tf2_msgs/msg/TFMessage.h"

#include <dds/dds.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <poll.h>
#include <unistd.h>
#include <vector>

namespace {

double monotonicUS() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) * 1e-3;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    Kestrion::Ros2::Ros2Settings settings;
    settings.domainId = std::atoi(argv[1]);
    const auto domain = Kestrion::Ros2::Ros2DomainConfig::make(settings, nullptr, nullptr, nullptr);
    if (!domain || dds_create_domain(domain->domainId, domain->configuration.c_str()) < 0)
        return 2;
    const dds_entity_t participant = dds_create_participant(domain->domainId, nullptr, nullptr);
    const dds_entity_t topic = dds_create_topic(participant, &tf2_msgs_msg_dds__TFMessage__desc,
                                                Kestrion::Ros2::Ros2Names::TfTopic, nullptr, nullptr);
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, 100);
    dds_data_representation_id_t xcdr1 = DDS_DATA_REPRESENTATION_XCDR1;
    dds_qset_data_representation(qos, 1, &xcdr1);
    const dds_entity_t reader = dds_create_reader(participant, topic, qos, nullptr);
    dds_delete_qos(qos);
    const dds_entity_t waitset = dds_create_waitset(participant);
    dds_waitset_attach(waitset, dds_create_readcondition(reader, DDS_ANY_STATE), reader);
    std::printf("ready\n");
    std::fflush(stdout);

    std::vector<double> delays;
    for (;;) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        if (::poll(&input, 1, 0) > 0) {
            char buffer[64];
            if (::read(STDIN_FILENO, buffer, sizeof buffer) <= 0)
                break;
        }
        dds_waitset_wait(waitset, nullptr, 0, DDS_MSECS(100));
        void* samples[8] = {};
        dds_sample_info_t infos[8];
        const dds_return_t count = dds_take(reader, samples, infos, 8, 8);
        const double now = monotonicUS();
        for (dds_return_t i = 0; i < count; ++i) {
            const auto* message = static_cast<const tf2_msgs_msg_dds__TFMessage_*>(samples[i]);
            if (!infos[i].valid_data || message->transforms_._length == 0)
                continue;
            const auto& stamp = message->transforms_._buffer[0].header_.stamp_;
            delays.push_back(now - (static_cast<double>(stamp.sec_) * 1e6 + stamp.nanosec_ * 1e-3));
        }
        if (count > 0)
            dds_return_loan(reader, samples, count);
    }
    std::sort(delays.begin(), delays.end());
    if (delays.empty())
        std::printf("0 0 0\n");
    else
        std::printf("%zu %.1f %.1f\n", delays.size(), delays[delays.size() / 2],
                    delays[delays.size() * 99 / 100]);
    dds_delete(participant);
    return 0;
}
