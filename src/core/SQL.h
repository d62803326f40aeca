#pragma once

// The whole SQL text layer: quoting, script splitting and review, CSV and row identification.
#include "core/Csv.h"
#include "core/RowPredicate.h"
#include "core/ScriptSplitter.h"
#include "core/SqlQuoting.h"
#include "core/StatementReview.h"
