// schedules/samples.h - contents of files, and what is compressed from them without threads
#pragma once

#include "format/file_parameters.h"
#include "qrx.h"
#include "support/shapes.h"

#include <string>

namespace quarnex::test {

/// A content with the name of a file that holds it.
struct sample {
    u32 number;
    bytes content;
    std::string name;

    bool is_tiny() const { return content.size() <= 5000; }
    bool is_small() const { return content.size() <= 250000; }
};

/// Contents of 0 bytes to 4 MiB that are coded fast, and their .qrx files.
class sample_set {
  public:
    /// Writes the contents to files in `directory`.
    explicit sample_set(const std::string& directory);

    /// Return any sample, any tiny one, or any small one.
    const sample& any(random_source& random) const;
    const sample& any_tiny(random_source& random) const;
    const sample& any_small(random_source& random) const;
    /// Returns a sample of more blocks than the rings of a few threads hold; any() doesn't.
    const sample& longest() const { return longest_; }

    /// Returns the .qrx file of a sample as it is written without workers.  Computes it on
    /// the first call, which must not be made while threads run.
    const bytes& compressed(const sample& original, const file_parameters& parameters);
    /// Returns the name of a file that holds it.
    std::string compressed_name(const sample& original, const file_parameters& parameters) const;

  private:
    const sample& pick(random_source& random, bool (*suits)(const sample&)) const;

    std::string directory_;
    std::vector<sample> samples_;
    sample longest_;
    std::vector<std::pair<std::string, bytes>> compressed_; // by name
};

/// Returns parameters for blocks of 1 MiB with small tables: any method at level 0 or 1, or at any
/// level if the blocks are tiny.
file_parameters any_parameters(random_source& random, bool is_tiny);

/// The same for the library.
qrx_params params_of(const file_parameters& parameters);

/// Returns a file with its records in the order of the blocks; empty if it is damaged or
/// incomplete.
bytes in_order(const bytes& image);

/// Returns whether a file that was given up begins with the header and records that `expected` has.
bool is_start_of(const bytes& image, const bytes& expected);

} // namespace quarnex::test
