/** @file brynd_formula.h
 *  Formulas: compiling, decompiling, merging, evaluating.
 *
 *  A compiled formula is a string of bytes without addresses; its first word is its length. A damaged one
 *  gives the status 0x30b. Errors of formulas are 0x300 to 0x3ff.
 */
#ifndef BRYND_FORMULA_H
#define BRYND_FORMULA_H

#include "brynd_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Compiles a formula.
 *  @param item_name null for a selection; otherwise the item that a column formula computes
 *  @param text text_bytes bytes
 *  @param formula [out] block with the compiled formula, owned by the caller
 *  @param formula_bytes [out] its bytes
 *  @param error [out] the fault, 0 without one; this and all below may be null
 *  @param error_line [out] line of the fault, from 1 @param error_column [out] from 1
 *  @param error_offset [out] bytes before it @param error_bytes [out] bytes of the text at fault
 *  @return 0, 0x107, 0x1f1, 0x300 to 0x3ff (with the five error words set). Any thread. */
BRYND_API EngStatus EngFormulaCompile(const char* item_name, uint16_t name_bytes, const char* text,
                                      uint16_t text_bytes, EngMem* formula, uint16_t* formula_bytes,
                                      EngStatus* error, uint16_t* error_line, uint16_t* error_column,
                                      uint16_t* error_offset, uint16_t* error_bytes);

/** The text of a compiled formula.
 *  @param formula compiled formula, its first word telling the truth about the room behind it
 *  @param view_selection non-zero: the selection formula alone
 *  @param text [out] block with the text, without NUL, owned by the caller
 *  @param text_bytes [out]
 *  @return 0, 0x107, 0x1f1, 0x30b damaged. Any thread. */
BRYND_API EngStatus EngFormulaDecompile(const void* formula, int32_t view_selection, EngMem* text,
                                        uint16_t* text_bytes);

/** Adds the columns of a formula to another: a formula that selects and computes summary items at once.
 *  @param destination [in, out] its block may change in size
 *  @return 0, 0x1f0, 0x30b, 0x309 too long. Any thread. */
BRYND_API EngStatus EngFormulaMerge(EngMem source, EngMem destination);

/** Adds an item to what a selection formula puts into the summary.
 *  @param formula [in, out] its block may change in size
 *  @return 0, 0x1f0, 0x224, 0x30b, 0x309. Any thread. */
BRYND_API EngStatus EngFormulaSummaryItem(EngMem formula, const char* name, uint16_t name_bytes);

/** @param formula_bytes [out] bytes of the compiled formula in a block
 *  @return 0, 0x1f0, 0x1f1, 0x30b. Any thread. */
BRYND_API EngStatus EngFormulaSizeGet(EngMem formula, uint16_t* formula_bytes);

/** Makes a formula ready for evaluation; it is copied.
 *  @param flags 0
 *  @param formula compiled formula, its first word telling the truth about the room behind it
 *  @param compute [out] end it with EngComputeEnd
 *  @return 0, 0x107, 0x1f1, 0x30b. */
BRYND_API EngStatus EngComputeBegin(uint16_t flags, const void* formula, EngCompute* compute);

/** Evaluates a formula for a note.
 *  @param note 0 for a formula that needs none
 *  @param result [out] block with the value, type word first, owned by the caller; 0 when there is none.
 *    This and all below may be null.
 *  @param result_bytes [out] bytes of the value, type word included
 *  @param select [out] 1 when the formula selects the note
 *  @param delete_note [out] 1 when it asks for the note to be deleted
 *  @param modified [out] 1 when it changed the note
 *  @return 0, 0x1f0, 0x300 to 0x3ff. */
BRYND_API EngStatus EngComputeEvaluate(EngCompute compute, EngNote note, EngMem* result,
                                       uint16_t* result_bytes, int32_t* select, int32_t* delete_note,
                                       int32_t* modified);

/** Ends a compute; 0 is none and no failure.
 *  @return 0, 0x1f0. */
BRYND_API EngStatus EngComputeEnd(EngCompute compute);

#ifdef __cplusplus
}
#endif

#endif
