// The internal records and functions of the library, by topic.
#ifndef KVINT_H
#define KVINT_H

#include "kvint_composite.h"
#include "kvint_convert.h"
#include "kvint_database.h"
#include "kvint_design.h"
#include "kvint_document.h"
#include "kvint_form.h"
#include "kvint_index.h"
#include "kvint_session.h"
#include "kvint_system.h"
#include "kvint_view.h"

#endif
