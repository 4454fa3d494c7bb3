// Where --output leads.
#pragma once

#include <string>

#include "target/AudioOutput.h"

namespace velmora_target {

// PCM into a WAV file; the bytes of the stream go in as they are.
std::unique_ptr<AudioOutput> wavOutput(const std::string& path);
// DSD into a DSF file.
std::unique_ptr<AudioOutput> dsfOutput(const std::string& path);
// A sound device.
std::unique_ptr<AudioOutput> alsaOutput(const std::string& device);

// What can be said of an --output before any stream: that its folder is not there, that its
// extension is unknown. Empty if it will do.
std::string objectionTo(const std::string& output);
// The factory that a target asks once a stream: numbers files, and picks the file's kind. Only the
// output that the command line gave (`own`) may replace a file of an earlier run; what a host named
// never does.
MakeOutput outputMaker(const std::string& own);

}  // namespace velmora_target
