// Numbers as text.
#include "base/number.h"

#include "base/bytes.h"
#include "base/intl.h"
#include "brynd_text.h"

namespace status = brynd::status;

// Records may have any address and are copied. Without conventions those of the engine apply, without a
// format the general one.
EngStatus EngNumberToText(const INTLFORMAT* intl, const NFMT* format, const double* number, char* text,
                          uint16_t text_bytes, uint16_t* length) {
  if (number == nullptr || text == nullptr || length == nullptr) return status::kBadArgument;
  const INTLFORMAT conventions = intl == nullptr ? brynd::DefaultIntl() : brynd::Load<INTLFORMAT>(intl);
  const NFMT style = format == nullptr ? NFMT{} : brynd::Load<NFMT>(format);
  size_t written = 0;
  const EngStatus failure =
      brynd::NumberToText(conventions, style, brynd::LoadF64(number), {text, text_bytes}, &written);
  if (failure != status::kOk) return failure;
  brynd::StoreU16(length, static_cast<uint16_t>(written));
  return status::kOk;
}
