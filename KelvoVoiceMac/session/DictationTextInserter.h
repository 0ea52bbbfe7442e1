#pragma once

// DictationTextInserter is what the dictation session needs of text insertion, kept abstract so
// that the session can be tested with a recording fake; TextInsertionService implements it.
// insert() never throws: it yields true when the text reached the target (or was empty) and false
// when it did not. Main thread only.

#include <QCoroTask>
#include <string>

namespace kelvo::app {

class DictationTextInserter {
  public:
    virtual ~DictationTextInserter() = default;

    // restore asks to put the user's previous clipboard text back after a paste fallback.
    virtual QCoro::Task<bool> insert(std::string text, bool restore) = 0;
};

}  // namespace kelvo::app
