#pragma once

namespace quillane {

// What the model may ask of the running application as a whole.
class ApplicationControl {
public:
    virtual ~ApplicationControl() = default;
    // Ends the application; called on the main thread.
    virtual void terminate() = 0;
};

} // namespace quillane
