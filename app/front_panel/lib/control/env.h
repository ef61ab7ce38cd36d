// The board's key and value store, as the library reads it.
//
// This platform has none, so env_get finds nothing until the application supplies one: a function
// of its own, or a text file of KEY=value lines. The application chooses once at start-up, before
// anything is read; there is no lock. Nothing here stops the process.
#pragma once

/// Looks the key `name` up and copies its text to `value`, at most `len` bytes, the zero byte at
/// its end included as far as there is room. Returns `value`, or null when there is no such key,
/// and then leaves the bytes alone.
char* env_get(const char* name, char* value, const unsigned int len);

/// A store: does for env_get what is written there.
typedef char* (*env_store_t)(const char* name, char* value, unsigned int len);

/// Makes `store` the one that env_get asks from now on; null for none.
void env_set_store(env_store_t store);

/// Makes the text file at `path` the store, read anew by each env_get. One KEY=value is on each
/// line; white space round the key and round the value does not count, the last line of a key
/// holds, and a line that is empty, begins with `#` or has no `=` says nothing. A line is cut at a
/// zero byte and after 510 bytes. While the file cannot be read there is no key. `path` is kept and
/// not copied. Returns 0, or -1 when the file cannot be read, and then the store stays what it was.
int env_use_file(const char* path);
