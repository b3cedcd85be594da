#include "host/lib/trackingviews/StreamCondition.h"

#include "host/stream/Stream.h"

#include <QCoreApplication>

#include <chrono>

namespace Kestrion {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("Kestrion::StreamCondition", text);
}

} // namespace

QString StreamCondition::duration(StreamHealth::Clock::duration duration) {
    const double seconds = std::chrono::duration<double>(duration).count();
    if (seconds < 60.0)
        return tr("%1 s").arg(seconds, 0, 'f', 1);
    const auto whole = static_cast<long long>(seconds);
    if (whole < 3600)
        return tr("%1 min %2 s").arg(whole / 60).arg(whole % 60);
    return tr("%1 h %2 min").arg(whole / 3600).arg((whole % 3600) / 60);
}

StreamCondition StreamCondition::of(const Stream& stream, StreamHealth::Clock::time_point now) {
    StreamCondition condition;
    condition.health = stream.health().snapshot(now);
    const StreamHealth::Snapshot& health = condition.health;
    const QString name = QString::fromStdString(stream.name());
    const QString since =
        health.sinceLastData ? tr(" Last data %1 ago.").arg(duration(*health.sinceLastData)) : QString();
    const QString error = health.lastError.empty()
                              ? QString()
                              : tr(" Last error: %1").arg(QString::fromStdString(health.lastError));
    switch (health.state) {
    case StreamHealth::State::Delivering:
        condition.current = true;
        break;
    case StreamHealth::State::NotDelivering:
        condition.reason = tr("camera not delivering");
        condition.sentence =
            health.sinceLastData
                ? tr("The camera of \"%1\" is not delivering: no data for %2.%3")
                      .arg(name, duration(*health.sinceLastData), error)
                : tr("The camera of \"%1\" is not delivering: no data since the start.%2").arg(name, error);
        break;
    case StreamHealth::State::Ended:
        condition.reason = tr("data ended");
        condition.sentence =
            tr("The data of \"%1\" has ended: %2.%3")
                .arg(name,
                     health.endReason.empty() ? tr("no more data") : QString::fromStdString(health.endReason),
                     since);
        break;
    case StreamHealth::State::Stopped: {
        const QString state = QString::fromLatin1(Stream::stateName(stream.currentState()));
        condition.reason = tr("stream %1").arg(state);
        condition.sentence = tr("The stream \"%1\" is %2.%3%4").arg(name, state, since, error);
        break;
    }
    }
    return condition;
}

} // namespace Kestrion
