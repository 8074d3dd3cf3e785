#pragma once

#include "player/SuspensionData.h"

#include <cstddef>
#include <optional>
#include <string>

// A suspension snapshot as it is kept: the record and whether a wake-up has
// already made it pending (handed out by the next question).
struct SStoredSuspension {
    SSuspensionData data;
    bool isPending = false;
};

// Keeps the suspension snapshot in one file of a folder, so that a crash, a
// watchdog restart or a reboot between soft power-off and the client's
// question does not lose it. Holds no state of its own besides the folder;
// the request handler, its only user, calls it from the request thread.
class CSuspensionStore {
public:
    static constexpr const char* kFileName = "suspension.json";
    // A snapshot takes well under 2 KiB; anything this large is not ours.
    static constexpr size_t kMaxFileBytes = 64 * 1024;

    explicit CSuspensionStore(std::string directory);

    // Replaces the kept snapshot. The folder is created (mode 0700) when
    // missing; the file is written beside it and renamed over it, each step
    // synced, so a crash or a power cut leaves the old snapshot or the new
    // one, never a mix. False, logged, when the disk refused.
    bool Save(const SStoredSuspension& stored) const;
    // The kept snapshot. None when there is no file; none, with one log
    // line, when the file cannot be read or is not a whole snapshot.
    std::optional<SStoredSuspension> Load() const;
    // Forgets the kept snapshot (no file is fine).
    void Remove() const;

    std::string FilePath() const;

private:
    std::string m_directory;
};

// The file's text and back. Texts are ISO8859-1 inside the service; each
// byte is stored as the character of the same number, so every byte string,
// not only valid text, comes back as it went in. On failure `reason` says why.
std::string SuspensionToText(const SStoredSuspension& stored);
std::optional<SStoredSuspension> SuspensionFromText(const std::string& text, std::string& reason);
