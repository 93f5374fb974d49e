#pragma once

#include <filesystem>
#include <functional>
#include <string>

namespace quillane
{

// Plays short sounds, such as the one that marks an emptied trash. Used on the main thread.
class SoundPlayer
{
public:
    using ErrorHandler = std::function<void(const std::string& error)>;

    virtual ~SoundPlayer() = default;

    // Starts playing the file once at the default volume and returns at once. An error (no audio
    // device, a file it cannot open or decode) comes back later through onError, on the main
    // thread, as text, at most once. Replaces, and so stops, any sound this player was playing;
    // the sound replaced reports nothing more.
    virtual void play(const std::filesystem::path& file, ErrorHandler onError) = 0;
};

} // namespace quillane
