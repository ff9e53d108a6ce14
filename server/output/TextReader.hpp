#pragma once

namespace server::output {

/// One who takes text of the engine, as the gate sees it: a session's queue. Safe from any thread.
class TextReader {
  public:
    /// It has held up a writer for too long. Not to block, nor to call the gate.
    virtual void giveUp() noexcept = 0;

  protected:
    ~TextReader() = default;
};

}  // namespace server::output
