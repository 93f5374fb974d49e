#pragma once

#include "Platform/SoundPlayer.h"

#include <QObject>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

class QProcess;

namespace quillane
{

// Plays sounds with the sound server's own command-line player, the first of `players` that is
// installed (PipeWire's pw-play, else PulseAudio's paplay): the command line plays the
// completion sound this way, without loading Qt Multimedia. A play that has not ended within
// `bound` is stopped. Made and used on the main thread, which runs Qt's event loop.
class CommandSoundPlayer final : public QObject, public SoundPlayer
{
public:
    explicit CommandSoundPlayer(std::chrono::milliseconds bound,
                                std::vector<std::string> players = {"pw-play", "paplay"});
    ~CommandSoundPlayer() override;

    void play(const std::filesystem::path& file, ErrorHandler onError) override;
    // Calls done once, on the main thread, when the sound being played has ended, failed or
    // been stopped; at once (from the event loop) when none is playing.
    void whenFinished(std::function<void()> done);

private:
    void report(const std::string& error);
    void ended();

    std::chrono::milliseconds m_bound;
    std::vector<std::string> m_players;
    QProcess* m_process = nullptr;
    ErrorHandler m_onError;
    std::vector<std::function<void()>> m_whenFinished;
};

} // namespace quillane
