#include "host/ros2/Ros2Participant.h"

#include "host/core/Log.h"
#include "host/ros2/Ros2DomainConfig.h"
#include "host/ros2/Ros2FrameContent.h"
#include "host/ros2/Ros2Names.h"
#include "host/ros2/Ros2Settings.h"

#include "diagnostic_msgs/msg/DiagnosticArray.h"
#include "geometry_msgs/msg/PoseStamped.h"
#include "sensor_msgs/msg/PointCloud2.h"
#include "tf2_msgs/msg/TFMessage.h"

#include <dds/dds.h>

#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <set>

namespace Kestrion::Ros2 {

namespace {

const char* const Category = "Ros2Publisher";

constexpr std::uint8_t PointFieldFloat32 = 7; // sensor_msgs/msg/PointField FLOAT32

/// The domains of this process. DDS creates a domain once per process: publishers of the same
/// domain share it, and the last one to leave deletes it. The mutex orders creations and
/// deletions from the threads that start and stop publishers.
class DomainRegistry {
public:
    static DomainRegistry& instance() {
        static DomainRegistry registry;
        return registry;
    }

    /// Joins the domain, creating it with `configuration` when this process has none yet.
    dds_return_t join(int domainId, const std::string& configuration) {
        std::lock_guard<std::mutex> lock(m_mutex);
        Entry& entry = m_domains[domainId];
        if (entry.users == 0) {
            const dds_entity_t domain =
                dds_create_domain(static_cast<dds_domainid_t>(domainId), configuration.c_str());
            // Someone else in this process made it (without us): use it as it is.
            if (domain < 0 && domain != DDS_RETCODE_PRECONDITION_NOT_MET) {
                m_domains.erase(domainId);
                return domain;
            }
            entry.domain = domain > 0 ? domain : 0;
            entry.configuration = configuration;
        } else if (entry.configuration != configuration) {
            KESTRION_LOG_WARN(Category, "ROS 2 domain " << domainId
                                                        << " is already in use in this program with another "
                                                           "network configuration; that one applies");
        }
        ++entry.users;
        return 0;
    }

    void leave(int domainId) {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto it = m_domains.find(domainId);
        if (it == m_domains.end() || --it->second.users > 0)
            return;
        if (it->second.domain > 0)
            dds_delete(it->second.domain);
        m_domains.erase(it);
    }

private:
    struct Entry {
        dds_entity_t domain = 0;
        int users = 0;
        std::string configuration;
    };
    std::mutex m_mutex;
    std::map<int, Entry> m_domains;
};

builtin_interfaces_msg_dds__Time_ rosTime(std::uint64_t us) {
    builtin_interfaces_msg_dds__Time_ time;
    time.sec_ = static_cast<std::int32_t>(us / 1000000u);
    time.nanosec_ = static_cast<std::uint32_t>(us % 1000000u) * 1000u;
    return time;
}

char* text(const std::string& s) {
    // The messages are only read by dds_write: the strings are lent, never changed.
    return const_cast<char*>(s.c_str());
}

template <class Sequence, class Item>
void lend(Sequence& sequence, std::vector<Item>& items) {
    sequence._maximum = static_cast<std::uint32_t>(items.size());
    sequence._length = static_cast<std::uint32_t>(items.size());
    sequence._buffer = items.data();
    sequence._release = false;
}

} // namespace

struct Ros2Participant::Impl {
    /// A writer and its subscribers' count, which its listener keeps (on a DDS thread).
    struct Writer {
        Impl* owner = nullptr;
        dds_entity_t writer = 0;
        std::atomic<std::uint32_t> matched{0};
        bool matchedNow() const { return matched.load(std::memory_order_relaxed) > 0; }
    };

    int domainId = 0;
    bool joined = false;
    dds_entity_t participant = 0;
    std::string nameSpace;
    std::string frameId;
    std::function<void()> matchesChanged;
    std::atomic<std::int64_t> totalMatched{0};
    std::map<std::string, dds_entity_t> topics;
    Writer tf, fiducials, diagnostics;
    std::map<std::string, std::unique_ptr<Writer>> poses; // by tool name

    // Message storage reused from frame to frame (publisher thread only).
    std::vector<geometry_msgs_msg_dds__TransformStamped_> transforms;
    std::vector<diagnostic_msgs_msg_dds__DiagnosticStatus_> statuses;
    std::vector<std::vector<diagnostic_msgs_msg_dds__KeyValue_>> keyValues;

    static void onMatched(dds_entity_t, const dds_publication_matched_status_t status, void* arg) {
        auto* writer = static_cast<Writer*>(arg);
        const std::uint32_t before = writer->matched.exchange(status.current_count);
        writer->owner->totalMatched.fetch_add(static_cast<std::int64_t>(status.current_count) - before);
        writer->owner->matchesChanged();
    }

    bool createWriter(Writer& writer, const dds_topic_descriptor_t& type, const std::string& topicName,
                      bool reliable, std::int32_t depth, std::string* error) {
        writer.owner = this;
        dds_entity_t& topic = topics[topicName];
        if (topic <= 0)
            topic = dds_create_topic(participant, &type, topicName.c_str(), nullptr, nullptr);
        if (topic < 0) {
            if (error)
                *error = "topic " + topicName + ": " + dds_strretcode(topic);
            topics.erase(topicName);
            return false;
        }
        dds_qos_t* qos = dds_create_qos();
        dds_qset_reliability(qos, reliable ? DDS_RELIABILITY_RELIABLE : DDS_RELIABILITY_BEST_EFFORT,
                             DDS_MSECS(100));
        dds_qset_durability(qos, DDS_DURABILITY_VOLATILE);
        dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, depth);
        // Plain CDR: ROS 2's Cyclone DDS layer reads XCDR1 only.
        dds_data_representation_id_t xcdr1 = DDS_DATA_REPRESENTATION_XCDR1;
        dds_qset_data_representation(qos, 1, &xcdr1);
        dds_listener_t* listener = dds_create_listener(&writer);
        dds_lset_publication_matched(listener, &Impl::onMatched);
        writer.writer = dds_create_writer(participant, topic, qos, listener);
        dds_delete_listener(listener);
        dds_delete_qos(qos);
        if (writer.writer < 0) {
            if (error)
                *error = "writer of " + topicName + ": " + dds_strretcode(writer.writer);
            writer.writer = 0;
            return false;
        }
        return true;
    }

    void fillHeader(std_msgs_msg_dds__Header_& header, const std::string& frame, std::uint64_t stampUS) {
        header.stamp_ = rosTime(stampUS);
        header.frame_id_ = text(frame);
    }

    bool writeTf(const Ros2FrameContent& content) {
        if (!tf.matchedNow() || content.transforms.empty())
            return false;
        transforms.resize(content.transforms.size());
        for (std::size_t i = 0; i < transforms.size(); ++i) {
            const Ros2FrameContent::Transform& from = content.transforms[i];
            geometry_msgs_msg_dds__TransformStamped_& to = transforms[i];
            fillHeader(to.header_, from.parent, content.stampUS);
            to.child_frame_id_ = text(from.child);
            to.transform_.translation_ = {from.translationM.x(), from.translationM.y(),
                                          from.translationM.z()};
            to.transform_.rotation_ = {from.rotation.x(), from.rotation.y(), from.rotation.z(),
                                       from.rotation.w()};
        }
        tf2_msgs_msg_dds__TFMessage_ message{};
        lend(message.transforms_, transforms);
        return dds_write(tf.writer, &message) == DDS_RETCODE_OK;
    }

    bool writePoses(const Ros2FrameContent& content) {
        bool written = false;
        for (const Ros2FrameContent::Pose& pose : content.poses) {
            const auto it = poses.find(pose.tool);
            if (it == poses.end() || !it->second->matchedNow())
                continue;
            geometry_msgs_msg_dds__PoseStamped_ message{};
            fillHeader(message.header_, pose.frameId, content.stampUS);
            message.pose_.position_ = {pose.positionM.x(), pose.positionM.y(), pose.positionM.z()};
            message.pose_.orientation_ = {pose.orientation.x(), pose.orientation.y(), pose.orientation.z(),
                                          pose.orientation.w()};
            written = dds_write(it->second->writer, &message) == DDS_RETCODE_OK || written;
        }
        return written;
    }

    bool writeFiducials(const Ros2FrameContent& content) {
        if (!content.hasFiducials || !fiducials.matchedNow())
            return false;
        static const std::string names[3] = {"x", "y", "z"};
        std::array<sensor_msgs_msg_dds__PointField_, 3> fields{};
        for (std::uint32_t i = 0; i < 3; ++i)
            fields[i] = {text(names[i]), i * 4u, PointFieldFloat32, 1u};
        const auto points = static_cast<std::uint32_t>(content.fiducials.size() / 3);
        sensor_msgs_msg_dds__PointCloud2_ message{};
        fillHeader(message.header_, frameId, content.stampUS);
        message.height_ = 1;
        message.width_ = points;
        message.fields_ = {3, 3, fields.data(), false};
        message.is_bigendian_ = __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
        message.point_step_ = 12;
        message.row_step_ = 12 * points;
        message.data_ = {points * 12, points * 12,
                         reinterpret_cast<std::uint8_t*>(const_cast<float*>(content.fiducials.data())),
                         false};
        message.is_dense_ = true;
        return dds_write(fiducials.writer, &message) == DDS_RETCODE_OK;
    }
};

Ros2Participant::Ros2Participant(std::unique_ptr<Impl> impl)
    : m_impl(std::move(impl)) {}

Ros2Participant::~Ros2Participant() {
    // Deleting the participant deletes its writers and waits for their listeners to return.
    if (m_impl->participant > 0)
        dds_delete(m_impl->participant);
    if (m_impl->joined)
        DomainRegistry::instance().leave(m_impl->domainId);
}

std::unique_ptr<Ros2Participant> Ros2Participant::create(const Ros2DomainConfig& domain,
                                                         const Ros2Settings& settings,
                                                         std::function<void()> matchesChanged,
                                                         std::string* error) {
    auto impl = std::make_unique<Impl>();
    impl->domainId = domain.domainId;
    impl->nameSpace = settings.nameSpace;
    impl->frameId = settings.frameId;
    impl->matchesChanged = std::move(matchesChanged);
    std::unique_ptr<Ros2Participant> participant(new Ros2Participant(std::move(impl)));
    Impl& d = *participant->m_impl;
    const dds_return_t joined = DomainRegistry::instance().join(domain.domainId, domain.configuration);
    if (joined < 0) {
        if (error)
            *error = "Cyclone DDS refused the network configuration (" + std::string(dds_strretcode(joined)) +
                     "): its own message above says why";
        return nullptr;
    }
    d.joined = true;
    d.participant = dds_create_participant(static_cast<dds_domainid_t>(domain.domainId), nullptr, nullptr);
    if (d.participant < 0) {
        if (error)
            *error = std::string("no DDS participant: ") + dds_strretcode(d.participant);
        d.participant = 0;
        return nullptr;
    }
    if (!d.createWriter(d.tf, tf2_msgs_msg_dds__TFMessage__desc, Ros2Names::TfTopic, true, 100, error) ||
        !d.createWriter(d.diagnostics, diagnostic_msgs_msg_dds__DiagnosticArray__desc,
                        Ros2Names::DiagnosticsTopic, true, 10, error) ||
        !d.createWriter(d.fiducials, sensor_msgs_msg_dds__PointCloud2__desc,
                        Ros2Names::fiducialsTopic(settings.nameSpace), false, 5, error))
        return nullptr;
    return participant;
}

bool Ros2Participant::anyMatched() const {
    return m_impl->totalMatched.load(std::memory_order_relaxed) > 0;
}

std::size_t Ros2Participant::countSubscribers() {
    std::vector<Impl::Writer*> writers{&m_impl->tf, &m_impl->fiducials, &m_impl->diagnostics};
    for (auto& [tool, writer] : m_impl->poses)
        writers.push_back(writer.get());
    std::set<std::array<std::uint8_t, 16>> participants;
    std::vector<dds_instance_handle_t> handles;
    for (Impl::Writer* writer : writers) {
        if (!writer->matchedNow())
            continue;
        handles.resize(writer->matched.load() + 8);
        const dds_return_t count =
            dds_get_matched_subscriptions(writer->writer, handles.data(), handles.size());
        for (dds_return_t i = 0; i < count && static_cast<std::size_t>(i) < handles.size(); ++i) {
            dds_builtintopic_endpoint_t* endpoint =
                dds_get_matched_subscription_data(writer->writer, handles[i]);
            if (!endpoint)
                continue;
            std::array<std::uint8_t, 16> key{};
            std::memcpy(key.data(), endpoint->participant_key.v, key.size());
            participants.insert(key);
            dds_builtintopic_free_endpoint(endpoint);
        }
    }
    return participants.size();
}

void Ros2Participant::addTools(const std::vector<std::string>& tools) {
    for (const std::string& tool : tools) {
        if (m_impl->poses.count(tool))
            continue;
        auto writer = std::make_unique<Impl::Writer>();
        std::string error;
        const std::string topic = Ros2Names::poseTopic(m_impl->nameSpace, tool);
        if (!m_impl->createWriter(*writer, geometry_msgs_msg_dds__PoseStamped__desc, topic, false, 5, &error))
            KESTRION_LOG_ERROR(Category, "ROS 2 publisher cannot publish " << topic << ": " << error);
        m_impl->poses[tool] = std::move(writer); // once, even when refused: no retry per frame
    }
}

bool Ros2Participant::write(const Ros2FrameContent& content) {
    const bool tf = m_impl->writeTf(content);
    const bool poses = m_impl->writePoses(content);
    const bool fiducials = m_impl->writeFiducials(content);
    return tf || poses || fiducials;
}

std::size_t Ros2Participant::diagnosticsMatched() const {
    return m_impl->diagnostics.matched.load(std::memory_order_relaxed);
}

void Ros2Participant::writeDiagnostics(const std::vector<Ros2Diagnostics::Status>& statuses,
                                       std::uint64_t stampUS) {
    Impl& d = *m_impl;
    d.statuses.resize(statuses.size());
    d.keyValues.resize(statuses.size());
    for (std::size_t i = 0; i < statuses.size(); ++i) {
        const Ros2Diagnostics::Status& from = statuses[i];
        std::vector<diagnostic_msgs_msg_dds__KeyValue_>& values = d.keyValues[i];
        values.resize(from.values.size());
        for (std::size_t v = 0; v < values.size(); ++v)
            values[v] = {text(from.values[v].first), text(from.values[v].second)};
        diagnostic_msgs_msg_dds__DiagnosticStatus_& to = d.statuses[i];
        to.level_ = from.level;
        to.name_ = text(from.name);
        to.message_ = text(from.message);
        to.hardware_id_ = text(from.hardwareId);
        lend(to.values_, values);
    }
    diagnostic_msgs_msg_dds__DiagnosticArray_ message{};
    static const std::string noFrame;
    d.fillHeader(message.header_, noFrame, stampUS);
    lend(message.status_, d.statuses);
    dds_write(d.diagnostics.writer, &message);
}

void Ros2Participant::waitForAcknowledgements(double seconds) {
    const auto timeout = static_cast<dds_duration_t>(seconds * 1e9);
    for (dds_entity_t writer : {m_impl->tf.writer, m_impl->diagnostics.writer})
        if (writer > 0)
            dds_wait_for_acks(writer, timeout);
}

} // namespace Kestrion::Ros2
