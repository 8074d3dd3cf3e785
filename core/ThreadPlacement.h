#pragma once

// Gives the calling thread (not the whole process) the nice value
// `niceness`: background work such as a tag scan yields to requests and
// playback.
void SetThisThreadNiceness(int niceness);
