#pragma once

extern "C" {
#include <postgres.h>

#include <utils/jsonb.h>
}

#include "postgresql/Engine.h"

namespace PgApi {

/// Gives the fields of `record`, an object, to the scripts that run until the next call; from then
/// on it must live.
void openRecord(Jsonb* record);
/// Finds a field of it; see `Find`.
bool findField(const Path& path, bool isSpelled, Field& field) noexcept;
/// Raises the error again for which `findField` gave false in the last run, if there was one.
void raiseOfFields();

}  // namespace PgApi
