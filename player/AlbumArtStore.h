#pragma once

#include "core/Mutex.h"
#include "player/AlbumArtFiles.h"
#include "player/GstOwners.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

// The current track's cover: the image its tags brought, a client's pending
// request for it, the file last written for it, and the short worker threads
// that write it to the art folder outside the player's lock.
//
// Locks: m_imageMutex and m_workersMutex are never held together; the art
// folder's own lock is taken by a worker holding neither. The player calls
// in holding its own lock, except WaitForWorkers (a worker's announcement
// takes the player lock).
class CAlbumArtStore {
public:
    explicit CAlbumArtStore(std::string folder);
    // Waits for the workers, which use the store to the end.
    ~CAlbumArtStore();

    CAlbumArtStore(const CAlbumArtStore&) = delete;
    CAlbumArtStore& operator=(const CAlbumArtStore&) = delete;

    // A client asked for the cover; it is served once an image is held.
    void Request();
    // Read without a lock by the listener after every wait, so that an idle
    // check costs nothing.
    bool IsRequested() const { return m_requested; }
    // Takes a pending request when there is an image to serve it with.
    bool TakeServableRequest() EXCLUDES(m_imageMutex);

    // The image of the playing track; the one held before goes.
    void Hold(GstSamplePtr image) EXCLUDES(m_imageMutex);
    // The track ended or stopped: its image, a pending request and its
    // file's path go, and a worker still writing for it will not make its
    // file the current one.
    void Release() EXCLUDES(m_imageMutex);
    // The file last written for the current track; "" before one was.
    std::string LastPath() const EXCLUDES(m_imageMutex);

    // Starts a worker that writes the held image to a new file and then
    // calls `announce` with its path ("" when the image is too large for
    // the folder or could not be written). False when no thread started.
    bool StartWorker(std::function<void(const std::string& path)> announce) EXCLUDES(m_workersMutex);
    // Blocks until no worker runs.
    void WaitForWorkers() EXCLUDES(m_workersMutex);

    // The locks, for an owner's lock-order annotations only (const: they
    // cannot be taken through these).
    const CMutex& ImageMutex() const RETURN_CAPABILITY(m_imageMutex) { return m_imageMutex; }
    const CMutex& WorkersMutex() const RETURN_CAPABILITY(m_workersMutex) { return m_workersMutex; }

private:
    void RunWorker(const std::function<void(const std::string& path)>& announce)
        EXCLUDES(m_imageMutex, m_workersMutex);
    // The held image's bytes and its generation, or false (nothing copied)
    // when it is larger than the art folder takes.
    bool CopyImage(std::vector<uint8_t>& bytes, uint64_t& generation) const EXCLUDES(m_imageMutex);
    void KeepPathIfCurrent(uint64_t generation, const std::string& path) EXCLUDES(m_imageMutex);

    // Mirrors a pending request for the lock-free idle check; changed only
    // under m_imageMutex.
    std::atomic<bool> m_requested{false};

    // Guards the image, its generation and the last path, so a worker can
    // copy the image without the player lock.
    mutable CMutex m_imageMutex;
    GstSamplePtr m_image GUARDED_BY(m_imageMutex);
    uint64_t m_generation GUARDED_BY(m_imageMutex) = 0;  // bumped on release
    std::string m_lastPath GUARDED_BY(m_imageMutex);

    // Guards the count of running workers, held only to count and to wait.
    CMutex m_workersMutex;
    std::condition_variable m_workersDone;
    uint32_t m_workers GUARDED_BY(m_workersMutex) = 0;

    // The folder the workers write to; it has its own (leaf) lock.
    CAlbumArtFiles m_files;
};
