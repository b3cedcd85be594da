#include "atracsys/status/AtracsysInstrumentStatusEvaluator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace Kestrion::SpryTrack {

namespace {

using State = InstrumentStatusData::State;

/// Formats into `out`, reusing its capacity.
template <class... Args>
void format(std::string& out, const char* pattern, Args... args) {
    char text[512];
    const int length = std::snprintf(text, sizeof(text), pattern, args...);
    out.assign(text, static_cast<std::size_t>(std::clamp(length, 0, static_cast<int>(sizeof(text)) - 1)));
}

std::uint32_t pointsOf(const StatusInstrument& instrument) {
    return std::min<std::uint32_t>(instrument.pointCount, StatusMaxGeometryPoints);
}

} // namespace

void AtracsysInstrumentStatusEvaluator::evaluate(const StatusFrame& frame,
                                                 const std::vector<StatusInstrument>& instruments,
                                                 const Settings& settings,
                                                 std::vector<InstrumentStatusData::Entry>& entries) {
    // Fiducials of the markers found are explained; the search for the others runs on the rest.
    const std::size_t fiducials = frame.fiducials.size();
    m_owned.assign(fiducials, 0);
    for (const StatusMarker& marker : frame.markers)
        for (std::uint32_t fiducial : marker.fiducials)
            if (fiducial < fiducials)
                m_owned[fiducial] = 1;
    m_free.clear();
    for (std::size_t i = 0; i < fiducials; ++i)
        if (!m_owned[i])
            m_free.push_back(frame.fiducials[i]);

    // The fiducials are measured once per frame, and only when some instrument needs a search.
    double reach = -1.0;
    for (const StatusInstrument& instrument : instruments)
        if (instrument.active && instrument.onCamera && pointsOf(instrument) >= 2 &&
            !markerOf(frame, instrument.geometryId))
            reach = std::max(reach, AtracsysGeometryMatchSearch::span(instrument));
    const double window = NearFactor * settings.toleranceMM;
    if (reach >= 0.0)
        m_pairs.build(m_free, reach + window, std::max(window, 1e-3));

    entries.resize(instruments.size());
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        const StatusInstrument& instrument = instruments[i];
        InstrumentStatusData::Entry& entry = entries[i];
        entry.instrumentId = instrument.id;
        entry.registrationErrorMm = std::numeric_limits<double>::quiet_NaN();
        entry.fiducialsFound = 0;
        entry.fiducialsExpected = instrument.pointCount;
        if (!instrument.active) {
            entry.state = State::Inactive;
            entry.reason.assign("inactive");
        } else if (!instrument.onCamera) {
            entry.state = State::NotOnCamera;
            if (instrument.pointCount < 3)
                format(entry.reason, "not on the camera: refused, %u fiducials, at least 3 needed",
                       instrument.pointCount);
            else
                entry.reason.assign("not on the camera: refused or not yet registered");
        } else if (const StatusMarker* marker = markerOf(frame, instrument.geometryId)) {
            describeTracked(instrument, *marker, settings, entry);
        } else {
            describeUnseen(instrument, instruments, frame, settings, entry);
        }
    }
}

const StatusMarker* AtracsysInstrumentStatusEvaluator::markerOf(const StatusFrame& frame,
                                                                std::uint32_t geometryId) const {
    for (const StatusMarker& marker : frame.markers)
        if (marker.geometryId == geometryId)
            return &marker;
    return nullptr;
}

void AtracsysInstrumentStatusEvaluator::describeTracked(const StatusInstrument& instrument,
                                                        const StatusMarker& marker, const Settings& settings,
                                                        InstrumentStatusData::Entry& entry) {
    AtracsysGeometryMatchSearch::Match seen;
    const std::uint32_t count = pointsOf(instrument);
    for (std::uint32_t q = 0; q < count; ++q) {
        seen.fiducial[q] = marker.fiducials[q];
        seen.matched += marker.fiducials[q] != StatusNoFiducial;
    }
    entry.fiducialsFound = seen.matched;
    entry.registrationErrorMm = marker.registrationErrorMM;
    const bool high = marker.registrationErrorMM > settings.errorThresholdMM;
    entry.state = high ? State::TrackedHighError : State::Tracked;
    if (high)
        format(entry.reason, "tracked, registration error %.2f mm above the threshold of %.2f mm",
               marker.registrationErrorMM, settings.errorThresholdMM);
    else
        format(entry.reason, "tracked, registration error %.2f mm", marker.registrationErrorMM);
    if (seen.matched < count) {
        listPoints(seen, count, false, m_missing);
        entry.reason.append(", fiducials hidden: ").append(m_missing);
    }
}

void AtracsysInstrumentStatusEvaluator::describeUnseen(const StatusInstrument& instrument,
                                                       const std::vector<StatusInstrument>& instruments,
                                                       const StatusFrame& frame, const Settings& settings,
                                                       InstrumentStatusData::Entry& entry) {
    const std::uint32_t count = pointsOf(instrument);
    if (count < 2) {
        entry.state = State::NotInView;
        entry.reason.assign("no fiducial of the geometry in view");
        return;
    }
    m_search.search(instrument, m_pairs, settings.toleranceMM, NearFactor * settings.toleranceMM);
    const AtracsysGeometryMatchSearch::Match& close = m_search.close();
    const AtracsysGeometryMatchSearch::Match& near = m_search.near();
    const AtracsysGeometryMatchSearch::Match& set = close.matched >= 3 ? close : near;
    if (set.matched >= 3) {
        entry.state = State::Unmatched;
        entry.fiducialsFound = set.matched;
        listPoints(set, count, true, m_found);
        if (set.worstDeviationMM <= settings.toleranceMM)
            format(entry.reason, "fiducials %s at the geometry's distances, not matched by the camera",
                   m_found.c_str());
        else
            format(
                entry.reason,
                "fiducials %s nearly at the geometry's distances, not matched: fiducial%d-fiducial%d "
                "measures %.2f mm, %.2f mm off the geometry's %.2f mm (Distance matching tolerance %.2f mm)",
                m_found.c_str(), set.worstFirst, set.worstSecond, set.worstMeasuredMM, set.worstDeviationMM,
                set.worstExpectedMM, settings.toleranceMM);
        return;
    }
    // A marker found by the camera may hold fiducials at this geometry's distances too.
    const AtracsysGeometryMatchSearch::Match partial = close;
    for (const StatusMarker& marker : frame.markers) {
        if (!fitsMarker(instrument, marker, frame, settings.toleranceMM))
            continue;
        entry.state = State::Unmatched;
        entry.fiducialsFound = m_search.close().matched;
        listPoints(m_search.close(), count, true, m_found);
        const auto holder =
            std::find_if(instruments.begin(), instruments.end(),
                         [&](const StatusInstrument& i) { return i.geometryId == marker.geometryId; });
        if (holder != instruments.end())
            format(entry.reason, "fiducials %s at the geometry's distances are taken by %s", m_found.c_str(),
                   holder->id.c_str());
        else
            format(entry.reason, "fiducials %s at the geometry's distances are taken by geometry %u",
                   m_found.c_str(), marker.geometryId);
        return;
    }
    if (partial.matched >= 2) {
        entry.state = State::PartlySeen;
        entry.fiducialsFound = partial.matched;
        listPoints(partial, count, true, m_found);
        listPoints(partial, count, false, m_missing);
        format(entry.reason, "fiducials %s of %u found; %s missing", m_found.c_str(), count,
               m_missing.c_str());
        return;
    }
    entry.state = State::NotInView;
    entry.reason.assign("no fiducial of the geometry in view");
}

bool AtracsysInstrumentStatusEvaluator::fitsMarker(const StatusInstrument& instrument,
                                                   const StatusMarker& marker, const StatusFrame& frame,
                                                   double toleranceMM) {
    const std::uint32_t count = pointsOf(instrument);
    m_markerFiducials.clear();
    for (std::uint32_t fiducial : marker.fiducials)
        if (fiducial < frame.fiducials.size())
            m_markerFiducials.push_back(frame.fiducials[fiducial]);
    // Three points need three distances that the marker shows: most geometries fail this at once.
    int distancesShown = 0;
    for (std::uint32_t i = 0; i < count; ++i)
        for (std::uint32_t j = i + 1; j < count; ++j) {
            const double expected = (instrument.points[i] - instrument.points[j]).norm();
            bool shown = false;
            for (std::size_t a = 0; a < m_markerFiducials.size() && !shown; ++a)
                for (std::size_t b = a + 1; b < m_markerFiducials.size() && !shown; ++b)
                    shown = std::abs((m_markerFiducials[a] - m_markerFiducials[b]).norm() - expected) <=
                            toleranceMM;
            distancesShown += shown;
        }
    if (distancesShown < 3)
        return false;
    m_markerPairs.build(m_markerFiducials, AtracsysGeometryMatchSearch::span(instrument) + toleranceMM,
                        std::max(toleranceMM, 1e-3));
    m_search.search(instrument, m_markerPairs, toleranceMM, toleranceMM);
    return m_search.close().matched >= 3;
}

void AtracsysInstrumentStatusEvaluator::listPoints(const AtracsysGeometryMatchSearch::Match& match,
                                                   std::uint32_t count, bool found, std::string& out) const {
    out.clear();
    for (std::uint32_t q = 0; q < count; ++q) {
        if ((match.fiducial[q] != StatusNoFiducial) != found)
            continue;
        if (!out.empty())
            out.append(", ");
        char number[12];
        std::snprintf(number, sizeof(number), "%u", q);
        out.append(number);
    }
}

} // namespace Kestrion::SpryTrack
