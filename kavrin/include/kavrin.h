/* Kavrin: a document database library with a flat C interface. This header includes all topics. */
#ifndef KAVRIN_H
#define KAVRIN_H

#include "kavrin_composite.h"
#include "kavrin_convert.h"
#include "kavrin_database.h"
#include "kavrin_datetime.h"
#include "kavrin_document.h"
#include "kavrin_form.h"
#include "kavrin_index.h"
#include "kavrin_item.h"
#include "kavrin_list.h"
#include "kavrin_session.h"
#include "kavrin_status.h"
#include "kavrin_types.h"
#include "kavrin_view.h"

#endif
