// Sizes and offsets of the library's public structures, and of the internal records that hold engine bytes,
// for addresses of 4 and of 8 bytes: written out once more and independently of the headers.
#include <cstddef>

#include "kavrin.h"
#include "kvint.h"

namespace {

constexpr size_t kAddress = sizeof(void*);
static_assert(kAddress == 4 || kAddress == 8, "the interface is defined for these two");

// Public records without addresses: the same everywhere.
static_assert(sizeof(KVDATETIME) == 8 && alignof(KVDATETIME) == 1 && offsetof(KVDATETIME, innards) == 0);
static_assert(sizeof(KVUNID) == 16 && offsetof(KVUNID, unique) == 0 && offsetof(KVUNID, doc) == 8);
static_assert(sizeof(KVFONTSTYLE) == 4 && offsetof(KVFONTSTYLE, face) == 0 &&
              offsetof(KVFONTSTYLE, font_flags) == 1);
static_assert(offsetof(KVFONTSTYLE, color) == 2 && offsetof(KVFONTSTYLE, size) == 3);
static_assert(sizeof(KVDATETIMESUMM) == 40 && alignof(KVDATETIMESUMM) == 1 &&
              offsetof(KVDATETIMESUMM, year) == 0);
static_assert(offsetof(KVDATETIMESUMM, month) == 4 && offsetof(KVDATETIMESUMM, day) == 8);
static_assert(offsetof(KVDATETIMESUMM, weekday) == 12 && offsetof(KVDATETIMESUMM, hour) == 16);
static_assert(offsetof(KVDATETIMESUMM, minute) == 20 && offsetof(KVDATETIMESUMM, second) == 24);
static_assert(offsetof(KVDATETIMESUMM, hundredth) == 28 && offsetof(KVDATETIMESUMM, dst_in_effect) == 32);
static_assert(offsetof(KVDATETIMESUMM, zone) == 36);
static_assert(sizeof(KVFORMAT) == 36 && alignof(KVFORMAT) == 1);
static_assert(offsetof(KVFORMAT, number) == 0 && offsetof(KVFORMAT, datetime) == 12);
static_assert(offsetof(KVFORMAT, listsep) == 28);
static_assert(sizeof(KVINTERNATIONAL) == 4 * 4 + 7 * 5 + 3 * 32 && alignof(KVINTERNATIONAL) == 1);
static_assert(offsetof(KVINTERNATIONAL, intl_flags) == 0 && offsetof(KVINTERNATIONAL, date_order) == 4);
static_assert(offsetof(KVINTERNATIONAL, currency_digits) == 8 && offsetof(KVINTERNATIONAL, time_zone) == 12);
static_assert(offsetof(KVINTERNATIONAL, am_string) == 16 && offsetof(KVINTERNATIONAL, pm_string) == 21);
static_assert(offsetof(KVINTERNATIONAL, currency_symbol) == 26 &&
              offsetof(KVINTERNATIONAL, thousand_sep) == 31);
static_assert(offsetof(KVINTERNATIONAL, decimal_sep) == 36 && offsetof(KVINTERNATIONAL, date_sep) == 41);
static_assert(offsetof(KVINTERNATIONAL, time_sep) == 46 && offsetof(KVINTERNATIONAL, yesterday_string) == 51);
static_assert(offsetof(KVINTERNATIONAL, today_string) == 83 &&
              offsetof(KVINTERNATIONAL, tomorrow_string) == 115);

static_assert(sizeof(KVVIEWCACHESTATS) == 6 * 4 && alignof(KVVIEWCACHESTATS) == 1);
static_assert(offsetof(KVVIEWCACHESTATS, index) == 0 && offsetof(KVVIEWCACHESTATS, cache_rows) == 4);
static_assert(offsetof(KVVIEWCACHESTATS, cache_size) == 8 && offsetof(KVVIEWCACHESTATS, total_hits) == 12);
static_assert(offsetof(KVVIEWCACHESTATS, refresh_hits) == 16 && offsetof(KVVIEWCACHESTATS, fail_hits) == 20);

static_assert(sizeof(KVCDPABDEF) == 124 && alignof(KVCDPABDEF) == 1);
static_assert(offsetof(KVCDPABDEF, list_format) == 12 && offsetof(KVCDPABDEF, tab_twips) == 44);
static_assert(sizeof(KVCDPABREF) == 4 && sizeof(CDTEXT) == 8 && sizeof(CDPABDEFINITION) == 70);
static_assert(sizeof(CDFIELD) == 36 && sizeof(CDFIELD_PRE_36) == 34 && sizeof(CDDOCUMENT) == 24);

// Public records with addresses.
static_assert(sizeof(KVCDUNKNOWN) == 8 + kAddress && offsetof(KVCDUNKNOWN, buffer) == 8);
static_assert(sizeof(KVCDTEXT) == 8 + kAddress && offsetof(KVCDTEXT, length) == 4);
static_assert(sizeof(KVCDFIELD) == 76 + kAddress && offsetof(KVCDFIELD, format) == 16);
static_assert(offsetof(KVCDFIELD, default_formula_length) == 52 && offsetof(KVCDFIELD, buffer) == 76);
static_assert(sizeof(COMPDATA) == 124);
static_assert(sizeof(KVITEM) == 4 + 65 + 4 + 4 + kAddress && alignof(KVITEM) == 1);
static_assert(offsetof(KVITEM, type) == 0 && offsetof(KVITEM, name) == 4 &&
              offsetof(KVITEM, item_flags) == 69);
static_assert(offsetof(KVITEM, length) == 73 && offsetof(KVITEM, value) == 77);

static_assert(sizeof(KVFORM) == 4 + 16 + 8 + kAddress + 130 + 65 + 65 && alignof(KVFORM) == 1);
static_assert(offsetof(KVFORM, form_flags) == 0 && offsetof(KVFORM, type) == 4 &&
              offsetof(KVFORM, update) == 8);
static_assert(offsetof(KVFORM, update_trigger) == 12 && offsetof(KVFORM, on_conflict) == 16);
static_assert(offsetof(KVFORM, formopen_flags) == 20 && offsetof(KVFORM, background_color) == 24);
static_assert(offsetof(KVFORM, window_title_formula) == 28 && offsetof(KVFORM, name) == 28 + kAddress);
static_assert(offsetof(KVFORM, menu_name) == 158 + kAddress &&
              offsetof(KVFORM, cascade_name) == 223 + kAddress);
static_assert(kAddress == 8 || sizeof(KVFORM) == 292);
static_assert(sizeof(KVSUBFORM) == 199 && offsetof(KVSUBFORM, name) == 4 &&
              offsetof(KVSUBFORM, menu_name) == 134);
static_assert(sizeof(KVFORMSUMM) == 268 && offsetof(KVFORMSUMM, hidden) == 4 &&
              offsetof(KVFORMSUMM, name) == 8);
static_assert(offsetof(KVFORMSUMM, menu_name) == 138 && offsetof(KVFORMSUMM, cascade_name) == 203);
static_assert(sizeof(KVSUBFORMSUMM) == 199 && offsetof(KVSUBFORMSUMM, name) == 4 &&
              offsetof(KVSUBFORMSUMM, menu_name) == 134);
static_assert(sizeof(KVVIEW) == 50 + 2 * kAddress + 130 + 65 + 65 && alignof(KVVIEW) == 1);
static_assert(offsetof(KVVIEW, heading_lines) == 16 && offsetof(KVVIEW, row_spacing) == 18 &&
              offsetof(KVVIEW, background_color) == 26);
static_assert(offsetof(KVVIEW, title_border_font) == 34 && offsetof(KVVIEW, auto_refresh_seconds) == 46);
static_assert(offsetof(KVVIEW, selection_formula) == 50 && offsetof(KVVIEW, name) == 50 + 2 * kAddress);
static_assert(kAddress == 8 || sizeof(KVVIEW) == 318);
static_assert(sizeof(KVCOLUMN) == 181 + kAddress && alignof(KVCOLUMN) == 1);
static_assert(offsetof(KVCOLUMN, second_sort_col) == 12 && offsetof(KVCOLUMN, view_unid) == 20 &&
              offsetof(KVCOLUMN, total) == 36);
static_assert(offsetof(KVCOLUMN, heading_justify) == 44 && offsetof(KVCOLUMN, format) == 60 &&
              offsetof(KVCOLUMN, type) == 96);
static_assert(offsetof(KVCOLUMN, formula) == 100 && offsetof(KVCOLUMN, title) == 100 + kAddress);
static_assert(kAddress == 8 || sizeof(KVCOLUMN) == 185);
static_assert(sizeof(KVVIEWSUMM) == 272 && offsetof(KVVIEWSUMM, personal) == 8 &&
              offsetof(KVVIEWSUMM, name) == 12);
static_assert(sizeof(KVFOLDERSUMM) == 272 && offsetof(KVFOLDERSUMM, cascade_name) == 207);
static_assert(sizeof(KVNAVIGATORSUMM) == 199 && offsetof(KVNAVIGATORSUMM, name) == 4);
static_assert(sizeof(VIEW_TABLE_FORMAT) == 10 && sizeof(VIEW_COLUMN_FORMAT) == 32);
static_assert(sizeof(VIEW_TABLE_FORMAT2) == 38 && sizeof(VIEW_COLUMN_FORMAT2) == 46);
static_assert(sizeof(KVFIELD) == 117 + 5 * kAddress && alignof(KVFIELD) == 1);
static_assert(offsetof(KVFIELD, field_flags) == 4 && offsetof(KVFIELD, keywords) == 8 &&
              offsetof(KVFIELD, font) == 12);
static_assert(offsetof(KVFIELD, format) == 16 && offsetof(KVFIELD, description) == 52);
static_assert(offsetof(KVFIELD, keyword_list) == 52 + kAddress &&
              offsetof(KVFIELD, default_value_formula) == 52 + 2 * kAddress);
static_assert(offsetof(KVFIELD, input_translate_formula) == 52 + 3 * kAddress &&
              offsetof(KVFIELD, input_validate_formula) == 52 + 4 * kAddress);
static_assert(offsetof(KVFIELD, name) == 52 + 5 * kAddress && (kAddress == 8 || sizeof(KVFIELD) == 137));

// Internal records that hold the engine's bytes.
static_assert(sizeof(FORMAT) == 12 && offsetof(FORMAT, nfmt) == 0 && offsetof(FORMAT, tfmt) == 4);
static_assert(offsetof(FORMAT, listsep) == 8 && offsetof(FORMAT, item_flags) == 10);
static_assert(sizeof(API_FORMAT) == 159 && offsetof(API_FORMAT, format) == 8 &&
              offsetof(API_FORMAT, intl) == 20);

// A date-time of the caller is the engine's, byte for byte.
static_assert(sizeof(KVDATETIME) == sizeof(TIMEDATE) && sizeof(KVUNID) == sizeof(UNIVERSALNOTEID));

// Statuses, written out where programs store them.
static_assert(KVSUCCESS == 0 && KVFAIL_INTERNAL == 0x80000101u && KVFAIL_BAD_HANDLE == 0x80000112u);
static_assert(KVFAIL_NOT_INITIALIZED == 0x80000203u && KVFAIL_NO_DATABASE == 0x80000601u);
static_assert(KVFAIL_BAD_DOCUMENT == 0x80000e01u && KVFAIL_NO_ITEM == 0x80000f01u);
static_assert(KVFAIL_SUBFORM_NESTED == 0x80001b02u && KVFAIL_MESSAGE_COUNT == 0x8000ffffu);
static_assert(KVAPI_VERSION == 0x45005);

}  // namespace
