#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kestrion::Cli {

/// The options of `kestrion track`.
struct TrackOptions {
    /// Marker geometry files (INI), in the order given; ":/..." names a file compiled into a plugin.
    std::vector<std::string> geometries;
    /// Workspace whose "Atracsys.SpryTrackStream" block gives the stream's settings and markers.
    std::string workspace;
    /// Fiducial query mode: 0 none, 1 belonging to a marker, 2 in a marker's vicinity, 3 all.
    std::optional<int> fiducialMode;
    /// Folder for the camera images; empty: no images.
    std::string imagesFolder;
    /// Camera integration time, microseconds.
    std::optional<int> integrationTimeUS;
    /// Ends after this long (seconds) or this many frames; whichever comes first.
    std::optional<double> durationS;
    std::optional<std::uint64_t> frames;
    /// Records every frame to this CSV file; empty: no recording.
    std::string csvFile;
    /// Replaces an existing output file, or the output of an earlier run in an output folder.
    bool force = false;
    /// Records what the camera delivers, frame by frame, to this recording file; empty: none.
    std::string recordFile;
    /// The recording holds the camera images too.
    bool recordImages = false;
    /// Writes the poses as a tracking sequence (MetaImage sequence) to this file; empty: none.
    std::string sequenceFile;
    /// Milliseconds between two frame fetches; 0 (the default here): every frame as the camera
    /// delivers it.
    int pollMs = 0;
    /// The camera to use; none: the stream's own choice (the last camera reported).
    std::optional<std::uint64_t> serialNumber;
    /// Reopens the camera once a second when it stops delivering frames.
    bool reconnect = false;
    /// Seconds between two table refreshes.
    double refreshS = 1.0;
    /// Seconds between two saved image pairs.
    double imageIntervalS = 1.0;
    /// Serves the frames over OpenIGTLink on this TCP port (0: one the system chooses).
    std::optional<int> igtlPort;
    /// Address the OpenIGTLink server listens on.
    std::string igtlBind = "127.0.0.1";
    /// Publishes the frames to ROS 2 (docs/ros2.md), with these settings.
    bool ros2 = false;
    std::optional<int> ros2Domain;
    std::string ros2Namespace = "atracsys";
    std::string ros2Frame = "atracsys_camera";
    /// Network interface to publish on; empty: this computer only.
    std::string ros2Network;
    /// Names given to instruments (`--name ID=Name`), in the order given.
    std::vector<std::pair<std::string, std::string>> names;
    /// The instrument the others are also given in (`--reference ID`); empty: none.
    std::string referenceId;

    /// The example markers used when neither geometries nor a workspace are given.
    static std::vector<std::string> exampleGeometries();

    /// Parses the arguments; on a bad argument returns nothing and sets *error.
    static std::optional<TrackOptions> parse(const std::vector<std::string>& arguments, std::string* error);
};

} // namespace Kestrion::Cli
