#pragma once

// The names of what started or stopped a dictation. The gesture recogniser sends them and the
// session controller logs them and decides by them: a stop by "fn-hold" gets the final-partial
// drain. Defined once so that the two can never disagree on a spelling.

namespace kelvo::app {

struct DictationTrigger {
    static constexpr const char* menu = "menu";
    static constexpr const char* fnPress = "fn";
    static constexpr const char* fnHold = "fn-hold";
    static constexpr const char* fnToggleOff = "fn-toggle-off";
    static constexpr const char* fnTap = "fn-tap";
};

}  // namespace kelvo::app
