// Signing, sealing and attachments of notes: not in this build.
// Closing nothing succeeds; every other call says that it is not available.
#include "base/status.h"
#include "brynd_note.h"

namespace status = brynd::status;

EngStatus EngNoteSign(EngNote) { return status::kNotAvailable; }

EngStatus EngNoteUnsign(EngNote) { return status::kNotAvailable; }

EngStatus EngNoteDecrypt(EngNote, uint16_t, void*) { return status::kNotAvailable; }

EngStatus EngNoteCopyEncrypted(EngNote, uint16_t, EngNote*) { return status::kNotAvailable; }

EngStatus EngNoteFileAttach(EngNote, const char*, uint16_t, const char*, const char*, uint16_t) {
  return status::kNotAvailable;
}

EngStatus EngNoteFileExtract(EngNote, BLOCKID, const char*, const void*) { return status::kNotAvailable; }

EngStatus EngNoteFileDetach(EngNote, BLOCKID) { return status::kNotAvailable; }
