// Where --output leads.
#pragma once

#include <string>

#include "target/AudioOutput.h"
#include "target/PcmDevice.h"

namespace velmora_target {

// PCM into a WAV file; the bytes of the stream go in as they are.
std::unique_ptr<AudioOutput> wavOutput(const std::string& path);
// DSD into a DSF file.
std::unique_ptr<AudioOutput> dsfOutput(const std::string& path);
// What can be said of an --output before any stream: that its folder is not there, that its
// extension is unknown. Empty if it will do.
std::string objectionTo(const std::string& output);
// The factory that a target asks once a stream: numbers files, and picks the file's kind. Only the
// output that the command line gave (`own`) may replace a file of an earlier run; what a host named
// never does. Sound devices are held as `times` say.
MakeOutput outputMaker(const std::string& own, const PcmTimes& times);
// Sound devices are asked; files take all that is allowed.
TakenFormats formatsOfOutput(const std::string& output, const FormatMasks& allowed);

}  // namespace velmora_target
