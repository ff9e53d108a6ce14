#pragma once

#include "YorWorks/lxe/GlobalBreakpoint.hpp"
#include "YorWorks/lxe/LineBreakpoint.hpp"
#include "yvm/BreakpointsChangedEvent.hpp"

#include <pybind11/pybind11.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace yvm::engine {

/// A breakpoint at a place, as it stands in the engine.
struct PlacedBreakpoint {
    enum class Place {
        File,      ///< where execution enters the file
        Function,  ///< where the function begins
        Line,
        Lambda  ///< where the anonymous function begins
    };

    YorWorks::lxe::LineBreakpoint breakpoint;  ///< as it was set last
    /// All by which it was set, of which a clear may name any. Empty for a whole file.
    std::vector<YorWorks::lxe::LineBreakpoint::Location> spellings{};
    std::string file;  ///< canonical
    Place place = Place::File;
    int line = 0;                       ///< of a line or lambda, maybe behind the one that it was set on
    std::pair<int, int> lambdaStart{};  ///< see `startOfBody`
    std::string function{};             ///< qualified
    pybind11::object condition{};       ///< compiled; none without one
};

using PlacedBreakpoints = std::vector<std::shared_ptr<const PlacedBreakpoint>>;

/// Which breakpoints concern one piece of code.
struct CodePlan {
    pybind11::object code;            ///< kept, so that nothing else comes to have its address
    PlacedBreakpoints atEntry{};      ///< stop on the first line of a call
    PlacedBreakpoints atFileEntry{};  ///< the same, if the caller is of another file
    std::unordered_map<int, PlacedBreakpoints> atLine{};
};

/// The breakpoints of the engine, which all clients share. One place has one breakpoint: a later one takes
/// the place of an earlier one.
///
/// Guarded by the GIL.
class BreakpointTable {
  public:
    using Condition = YorWorks::lxe::GlobalBreakpoint::Condition;
    using Entries = std::vector<BreakpointsChangedEvent::Entry>;

    /// Throw `cmddistributor::RuntimeException` that says what is wrong with the breakpoint; then nothing has
    /// changed. A line without code moves to the next one that has some.
    void set(const YorWorks::lxe::LineBreakpoint& breakpoint);
    void set(const YorWorks::lxe::GlobalBreakpoint& breakpoint);

    /// False when there is none such, which is no error. Of a line breakpoint, file and location count, and
    /// the location is any that it was set by, or the line that it has moved to. A condition that is given
    /// without identifier is cleared with all its identifiers.
    bool clear(const YorWorks::lxe::LineBreakpoint& breakpoint);
    bool clear(const YorWorks::lxe::GlobalBreakpoint& breakpoint);
    bool clearAll();

    /// In the order in which they were set, those on conditions last.
    Entries entries() const;

    bool hasPlaces() const noexcept { return !places_.empty(); }
    bool has(Condition condition) const noexcept;
    /// Whether some breakpoint of that condition is on every identifier, or on one of these.
    bool has(Condition condition, const std::vector<std::string>& identifiers) const;

    /// Null for code without breakpoints. Throws Python's exceptions.
    std::shared_ptr<const CodePlan> planOf(PyCodeObject* code);

  private:
    using Place = PlacedBreakpoint::Place;

    static constexpr std::size_t maxCanonicalFiles = 10'000;

    std::shared_ptr<const CodePlan> makePlan(pybind11::handle code);
    const std::string& canonicalFileOf(pybind11::handle code);
    void forgetPlans();

    PlacedBreakpoints places_;
    std::vector<YorWorks::lxe::GlobalBreakpoint> conditions_;
    std::unordered_set<std::string> files_;  ///< of the places
    /// Of code that was met since the last change, and has breakpoints.
    std::unordered_map<PyCodeObject*, std::shared_ptr<const CodePlan>> plans_;
    /// Names of files as code has them, to canonical ones.
    std::unordered_map<std::string, std::string> canonicalFiles_;
};

}  // namespace yvm::engine
