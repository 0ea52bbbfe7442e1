#pragma once

// Test speech made at test time: English sentences spoken by flite, joined by gaps of faint white
// noise (never digital silence, which no microphone delivers and which derails the recogniser),
// converted by sox to the rate and channel count a test asks for (the same noise on every run: sox
// -R); the word error rate of a recognised text against what was said; and the shell that runs
// the tools.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::testing {

// Runs a command line through /bin/sh; returns its standard output, throws when it fails.
inline std::string runShell(const std::string& commandLine) {
    FILE* pipe = popen(commandLine.c_str(), "r");
    if (!pipe) {
        throw std::runtime_error("cannot run: " + commandLine);
    }
    std::string output;
    char buffer[4096];
    for (std::size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, count);
    }
    if (const int status = pclose(pipe); status != 0) {
        throw std::runtime_error("failed (" + std::to_string(status) + "): " + commandLine);
    }
    return output;
}

// The text as one word of the shell.
inline std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return result + "'";
}

// The sentences spoken one after the other into `file` (any format sox writes: .wav, .flac),
// starting and ending with a gap. Returns what was said.
inline std::string speak(const std::vector<std::string>& sentences,
                         const std::filesystem::path& file, int rateHz = 16000, int channels = 1,
                         const std::string& voice = "kal16") {
    const std::filesystem::path folder = file.parent_path();
    const std::filesystem::path gap = folder / "gap.wav";
    runShell("sox -R -n -r 16000 -c 1 -b 16 " + quoted(gap) +
             " synth 1.2 whitenoise vol 0.002 2>/dev/null");
    std::string parts = quoted(gap);
    std::string said;
    for (std::size_t i = 0; i < sentences.size(); ++i) {
        const std::filesystem::path raw = folder / ("raw" + std::to_string(i) + ".wav");
        const std::filesystem::path spoken = folder / ("spoken" + std::to_string(i) + ".wav");
        runShell("flite -voice " + voice + " -t '" + sentences[i] + "' -o " + quoted(raw));
        runShell("sox " + quoted(raw) + " -r 16000 -c 1 -b 16 " + quoted(spoken));
        parts += " " + quoted(spoken) + " " + quoted(gap);
        said += (said.empty() ? "" : " ") + sentences[i];
    }
    runShell("sox " + parts + " -r " + std::to_string(rateHz) + " -c " + std::to_string(channels) +
             " " + quoted(file));
    return said;
}

inline std::vector<std::string> lowerWords(const std::string& text) {
    std::string cleaned;
    for (const unsigned char c : text) {
        cleaned += (std::isalnum(c) || c == '\'') ? static_cast<char>(std::tolower(c)) : ' ';
    }
    std::istringstream in(cleaned);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

// Word-level Levenshtein distance over the reference's word count (case and punctuation ignored).
inline double wordErrorRate(const std::string& reference, const std::string& hypothesis) {
    const auto r = lowerWords(reference);
    const auto h = lowerWords(hypothesis);
    std::vector<std::size_t> previous(h.size() + 1);
    std::vector<std::size_t> current(h.size() + 1);
    for (std::size_t j = 0; j <= h.size(); ++j) {
        previous[j] = j;
    }
    for (std::size_t i = 1; i <= r.size(); ++i) {
        current[0] = i;
        for (std::size_t j = 1; j <= h.size(); ++j) {
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1,
                                   previous[j - 1] + (r[i - 1] == h[j - 1] ? 0 : 1)});
        }
        std::swap(previous, current);
    }
    return r.empty() ? 0.0 : static_cast<double>(previous[h.size()]) / r.size();
}

}  // namespace kelvo::testing
