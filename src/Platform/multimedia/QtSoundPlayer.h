#pragma once

#include "Platform/SoundPlayer.h"

#include <memory>

namespace quillane
{

// Plays sounds with Qt Multimedia (on Linux, its GStreamer backend): one player and one audio
// output per play, kept until the next play replaces them. Made and used on the main thread,
// which runs Qt's event loop.
class QtSoundPlayer final : public SoundPlayer
{
public:
    // Whether there is an audio output to play on; asked at each play.
    using OutputCheck = std::function<bool()>;

    // Asks Qt Multimedia for the default audio output.
    QtSoundPlayer();
    explicit QtSoundPlayer(OutputCheck hasOutput);
    ~QtSoundPlayer() override;
    QtSoundPlayer(const QtSoundPlayer&) = delete;
    QtSoundPlayer& operator=(const QtSoundPlayer&) = delete;

    void play(const std::filesystem::path& file, ErrorHandler onError) override;

private:
    class Playback;
    struct Retire {
        void operator()(Playback* playback) const;
    };

    OutputCheck m_hasOutput;
    std::unique_ptr<Playback, Retire> m_playback;
};

} // namespace quillane
