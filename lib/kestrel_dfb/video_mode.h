#pragma once

// The player's named video modes. The player says its current output mode with a mode string: a mode
// name, then option words, each after a colon ("3840x2160x60p:10bit:420"). VideoMode owns the table of
// modes, the parser of mode strings, and the programming of the current mode into the screen's encoder.
//
// Whoever parses must have a HardwareConfig: it says which modes the player's hardware can output.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "lib/kestrel_dfb/directfb_helpers.h"
#include "lib/kestrel_dfb/video_mode_record.h"

/// The player's output mode: parsing of mode strings, and programming of the encoder.
class VideoMode {
public:
    /// One mode as data: what parsing yields.
    using Mode = VideoModeRecord;

    /// Thrown for a mode string that names no mode which the player can output.
    class Invalid : public std::exception {
    public:
        /// @param message what went wrong
        /// @param mode the mode string
        Invalid(std::string message, std::string mode);

        /// The message; lives as long as the exception
        const char* what() const noexcept override { return m_message.c_str(); }

        /// The offending mode string.
        virtual const std::string& GetMode() const { return m_mode; }

    private:
        std::string m_message;
        std::string m_mode;
    };

    /// Called with the flags and the connectors of each configuration before it is written to the
    /// encoder.
    using EncoderObserver = void (*)(std::uint32_t flags, std::uint32_t connectors);

    /// Parses a mode string. Mode names ignore ASCII case, option words do not; unknown option words are
    /// ignored, and later ones override earlier ones. Any thread.
    /// @param mode_string the mode string; an empty one becomes "1920x1080x60p"
    /// @param mode filled with the table's row as changed by the options
    /// @return true
    /// @throws Invalid when no mode has that name, the hardware cannot output it, or the mode does not
    ///        allow the colour space at the colour depth
    static bool Parse(std::string& mode_string, Mode& mode);

    /// Reads the player's current mode string. Any thread.
    /// @return the content of "/var/run/video.mode", trimmed and in lower case
    /// @throws ErrnoException when the file cannot be read
    static std::string ReadCurrentModeName();

    /// Reads a mode string from a file, as ReadCurrentModeName does. Any thread.
    /// @param path the file
    /// @return its content, trimmed of NULs, tabs, line ends and blanks, and in lower case
    /// @throws ErrnoException when the file cannot be read
    static std::string ReadModeName(const std::string& path);

    /// Programs the player's current mode into encoder 0 of a screen. Main thread only. Errors of the
    /// encoder itself are ignored: the picture then stays as the player had it.
    /// @param screen the screen
    /// @param fall_back use "640x480x60p" when the current mode cannot be read, instead of throwing
    /// @param limit_to_hd output UHD modes as "1920x1080x60p", and any mode in RGB
    /// @return whether a configuration was written
    /// @throws Invalid when the mode string is invalid
    /// @throws ErrnoException when the mode string cannot be read and fall_back is false
    static bool ApplyCurrentMode(DFBPointer<IDirectFBScreen> screen, bool fall_back, bool limit_to_hd);

    /// Programs a given mode string, as ApplyCurrentMode does with the current one. Main thread only.
    /// @param screen the screen
    /// @param mode_string the mode string; an empty one stands for "1920x1080x60p"
    /// @param limit_to_hd output UHD modes as "1920x1080x60p", and any mode in RGB
    /// @return whether a configuration was written
    /// @throws Invalid when the mode string is invalid
    static bool ApplyMode(DFBPointer<IDirectFBScreen> screen, std::string mode_string, bool limit_to_hd);

    /// Makes "1920x1080x60p" of a UHD mode, and RGB of any mode's colour space. Any thread.
    /// @param mode the mode, changed in place
    /// @return false when the hardware cannot output "1920x1080x60p"; the mode is of no use then
    static bool LimitToHd(Mode& mode);

    /// Whether the player's hardware can output a resolution. Any thread.
    static bool IsResolutionSupported(std::uint64_t resolution);

    /// Whether a resolution is one of those beyond HD, UHD itself not counted, that a player limited to
    /// HD refuses. Any thread.
    static bool IsLargeResolution(std::uint64_t resolution);

    /// Whether a row of the mode table has a name, ignoring ASCII case. Any thread.
    /// @param index the row, below the table's size; anything else is a programming error and ends the
    ///        process
    /// @param name the name, compared in its whole length
    static bool NameMatches(std::size_t index, std::string_view name);

    /// Sets the observer of encoder configurations, or none with null. Main thread only.
    static void SetEncoderObserver(EncoderObserver observer) { sm_encoderObserver = observer; }

    /// While set, output goes to HDMI alone, whatever connectors the mode has. Main thread only.
    static void SetHdmiOnly(bool hdmiOnly) { sm_hdmiOnly = hdmiOnly; }

    /// The connectors of the mode applied last; 0 before the first. Main thread only.
    static std::uint32_t GetLastAppliedConnectors() { return sm_lastAppliedConnectors; }

private:
    static EncoderObserver sm_encoderObserver;
    static std::uint32_t sm_lastAppliedConnectors;
    static bool sm_hdmiOnly;
};
