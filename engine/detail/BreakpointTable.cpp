#include "engine/detail/BreakpointTable.hpp"

#include "cmddistributor/RuntimeException.hpp"
#include "engine/detail/CodeLines.hpp"
#include "engine/detail/PythonText.hpp"
#include "fl/i18n/ustring.hpp"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <set>
#include <string_view>
#include <system_error>

namespace yvm::engine {

namespace py = pybind11;
using cmddistributor::RuntimeException;
using YorWorks::lxe::GlobalBreakpoint;
using YorWorks::lxe::LineBreakpoint;

namespace {

[[noreturn]] void refuse(const std::string& message) {
    throw RuntimeException(RuntimeException::Status::RequestInvalid, message, "yvm:breakpointRefused");
}

/// Calls a function of the engine's Python side that refuses by a ValueError.
template <typename... Arguments>
py::object callChecker(const char* function, const Arguments&... arguments) {
    try {
        return py::module_::import("yvm._breakpoints").attr(function)(arguments...);
    } catch (py::error_already_set& error) {
        refuse(toUtf8(py::str(error.value())));
    }
}

/// Names of sources that are in no file stand for themselves.
std::string canonical(const std::string& file) {
    if (file.starts_with('<')) {
        return file;
    }
    std::error_code error;
    auto path = std::filesystem::weakly_canonical(std::filesystem::absolute(file, error), error);
    return error ? file : path.string();
}

/// What a file's code offers breakpoints.
class SourceMap {
  public:
    explicit SourceMap(py::handle code) {
        forEachCode(code, [this](py::handle part) {
            const auto lines = tracedLines(part);
            lines_.insert(lines.begin(), lines.end());
            auto* const raw = reinterpret_cast<PyCodeObject*>(part.ptr());
            if (isLambda(part)) {
                if (const auto start = startOfBody(part)) {
                    lambdas_[raw->co_firstlineno].insert(*start);
                }
            } else if ((raw->co_flags & CO_OPTIMIZED) != 0 && toUtf8(raw->co_name).front() != '<') {
                qualifiedNames_.insert(toUtf8(raw->co_qualname));
                byName_.emplace(toUtf8(raw->co_name), toUtf8(raw->co_qualname));
            }
        });
    }

    /// The line, or the next one with code.
    int lineWithCode(unsigned long long line, const std::string& file) const {
        constexpr int last = std::numeric_limits<int>::max();
        const auto found = lines_.lower_bound(line > last ? last : static_cast<int>(line));
        if (found == lines_.end()) {
            refuse("no code at or behind line " + std::to_string(line) + " of " + file);
        }
        return *found;
    }

    /// `index` counts from 1, by column.
    std::pair<int, int> lambda(unsigned long long line, unsigned long long index,
                               const std::string& file) const {
        const auto found =
            line > std::numeric_limits<int>::max() ? lambdas_.end() : lambdas_.find(static_cast<int>(line));
        const std::size_t count = found != lambdas_.end() ? found->second.size() : 0;
        if (index > count) {
            refuse("no anonymous function " + std::to_string(index) + " on line " + std::to_string(line) +
                   " of " + file + ", which has " + std::to_string(count));
        }
        return *std::next(found->second.begin(), static_cast<std::ptrdiff_t>(index - 1));
    }

    /// The qualified name of a function that is given by it, or by its own name if only one has that.
    std::string function(const std::string& name, const std::string& file) const {
        if (qualifiedNames_.contains(name)) {
            return name;
        }
        const auto [first, end] = byName_.equal_range(name);
        if (first == end) {
            refuse("no function " + name + " in " + file);
        }
        if (std::next(first) != end) {
            refuse("more than one function " + name + " in " + file + ", such as " + first->second +
                   ": the qualified name is accepted");
        }
        return first->second;
    }

  private:
    std::set<int> lines_;
    std::map<int, std::set<std::pair<int, int>>> lambdas_;  ///< by first line
    std::set<std::string> qualifiedNames_;
    std::multimap<std::string, std::string> byName_;
};

/// Whether the two stand at the same place.
bool isAtSamePlace(const PlacedBreakpoint& one, const PlacedBreakpoint& other) {
    const auto index = [](const PlacedBreakpoint& breakpoint) {
        const auto& location = breakpoint.breakpoint.location();
        return location ? location->anonymousIndex() : std::nullopt;
    };
    return one.file == other.file && one.place == other.place && one.line == other.line &&
           one.function == other.function && index(one) == index(other);
}

/// Whether a clear of `breakpoint`, in its canonical file, means this one.
bool isMeant(const PlacedBreakpoint& placed, const LineBreakpoint& breakpoint, const std::string& file) {
    if (placed.file != file ||
        placed.breakpoint.location().has_value() != breakpoint.location().has_value()) {
        return false;
    }
    if (!breakpoint.location()) {
        return true;
    }
    const auto& meant = *breakpoint.location();
    if (std::find(placed.spellings.begin(), placed.spellings.end(), meant) != placed.spellings.end()) {
        return true;
    }
    if (meant.localFunction()) {
        return placed.place == PlacedBreakpoint::Place::Function && placed.function == *meant.localFunction();
    }
    return placed.place == PlacedBreakpoint::Place::Line &&
           meant.lineNumber() == static_cast<unsigned long long>(placed.line) &&
           meant.anonymousIndex() == placed.breakpoint.location()->anonymousIndex();
}

}  // namespace

void BreakpointTable::set(const LineBreakpoint& breakpoint) {
    const std::string name = fl::i18n::to_string(breakpoint.fileName());
    if (name.empty()) {
        refuse("a breakpoint without a file name");
    }
    PlacedBreakpoint placed{.breakpoint = breakpoint, .file = canonical(name)};
    placed.condition = breakpoint.expression()
                           ? callChecker("compile_condition", toPythonText(*breakpoint.expression()))
                           : py::none();
    const SourceMap source(callChecker("compile_source", toPythonText(fl::i18n::to_ustring(placed.file))));
    if (const auto& location = breakpoint.location()) {
        if (location->localFunction()) {
            placed.place = Place::Function;
            placed.function = source.function(*location->localFunction(), name);
        } else if (location->anonymousIndex().value_or(0) > 0) {
            placed.place = Place::Lambda;
            placed.lambdaStart = source.lambda(location->lineNumber(), *location->anonymousIndex(), name);
            placed.line = static_cast<int>(location->lineNumber());
        } else if (location->lineNumber() == 0) {
            refuse("line 0: lines count from 1");
        } else {
            placed.place = Place::Line;
            placed.line = source.lineWithCode(location->lineNumber(), name);
        }
    }
    const auto before = std::find_if(places_.begin(), places_.end(), [&placed](const auto& candidate) {
        return isAtSamePlace(*candidate, placed);
    });
    if (before != places_.end()) {
        placed.spellings = (*before)->spellings;
    }
    if (const auto& location = breakpoint.location();
        location &&
        std::find(placed.spellings.begin(), placed.spellings.end(), *location) == placed.spellings.end()) {
        placed.spellings.push_back(*location);
    }
    if (before != places_.end()) {
        *before = std::make_shared<PlacedBreakpoint>(std::move(placed));
    } else {
        places_.push_back(std::make_shared<PlacedBreakpoint>(std::move(placed)));
    }
    forgetPlans();
}

void BreakpointTable::set(const GlobalBreakpoint& breakpoint) {
    const auto condition = breakpoint.condition();
    if ((condition == Condition::NanInf || condition == Condition::UnsuppressedOutput) &&
        !breakpoint.messageId().value_or("").empty()) {
        refuse("a message identifier is for errors and warnings: this condition knows none");
    }
    if (std::find(conditions_.begin(), conditions_.end(), breakpoint) == conditions_.end()) {
        conditions_.push_back(breakpoint);
    }
}

bool BreakpointTable::clear(const LineBreakpoint& breakpoint) {
    const std::string file = canonical(fl::i18n::to_string(breakpoint.fileName()));
    const auto cleared =
        std::erase_if(places_, [&](const auto& placed) { return isMeant(*placed, breakpoint, file); });
    forgetPlans();
    return cleared != 0;
}

bool BreakpointTable::clear(const GlobalBreakpoint& breakpoint) {
    return std::erase_if(conditions_, [&breakpoint](const auto& candidate) {
               return candidate == breakpoint ||
                      (!breakpoint.messageId() && candidate.condition() == breakpoint.condition());
           }) != 0;
}

bool BreakpointTable::clearAll() {
    if (places_.empty() && conditions_.empty()) {
        return false;
    }
    places_.clear();
    conditions_.clear();
    forgetPlans();
    return true;
}

BreakpointTable::Entries BreakpointTable::entries() const {
    Entries entries;
    for (const auto& placed : places_) {
        std::optional<std::uint64_t> line;
        if (placed->place == Place::Line || placed->place == Place::Lambda) {
            line = placed->line;
        }
        entries.push_back({placed->breakpoint, line});
    }
    for (const auto& condition : conditions_) {
        entries.push_back({condition, std::nullopt});
    }
    return entries;
}

bool BreakpointTable::has(Condition condition) const noexcept {
    return std::any_of(conditions_.begin(), conditions_.end(),
                       [condition](const auto& candidate) { return candidate.condition() == condition; });
}

bool BreakpointTable::has(Condition condition, const std::vector<std::string>& identifiers) const {
    return std::any_of(conditions_.begin(), conditions_.end(), [&](const auto& candidate) {
        const std::string wanted = candidate.messageId().value_or("");
        return candidate.condition() == condition &&
               (wanted.empty() ||
                std::find(identifiers.begin(), identifiers.end(), wanted) != identifiers.end());
    });
}

std::shared_ptr<const CodePlan> BreakpointTable::planOf(PyCodeObject* code) {
    const auto known = plans_.find(code);
    if (known != plans_.end()) {
        return known->second;
    }
    auto plan = makePlan(reinterpret_cast<PyObject*>(code));
    if (plan != nullptr) {
        plans_.emplace(code, plan);
    }
    return plan;
}

std::shared_ptr<const CodePlan> BreakpointTable::makePlan(py::handle code) {
    const std::string& file = canonicalFileOf(code);
    if (!files_.contains(file)) {
        return nullptr;
    }
    auto* const raw = reinterpret_cast<PyCodeObject*>(code.ptr());
    const auto lines = tracedLines(code);
    CodePlan plan{.code = py::reinterpret_borrow<py::object>(code)};
    for (const auto& placed : places_) {
        if (placed->file != file) {
            continue;
        }
        switch (placed->place) {
            case Place::File:
                plan.atFileEntry.push_back(placed);
                break;
            case Place::Function:
                if (placed->function == toUtf8(raw->co_qualname)) {
                    plan.atEntry.push_back(placed);
                }
                break;
            case Place::Lambda:
                if (isLambda(code) && raw->co_firstlineno == placed->line &&
                    startOfBody(code) == placed->lambdaStart) {
                    plan.atEntry.push_back(placed);
                }
                break;
            case Place::Line: {
                const bool ownCodeOnly = placed->breakpoint.location()->anonymousIndex().has_value();
                const bool isForeign = ownCodeOnly && isLambda(code) && raw->co_firstlineno == placed->line;
                if (!isForeign && std::binary_search(lines.begin(), lines.end(), placed->line)) {
                    plan.atLine[placed->line].push_back(placed);
                }
                break;
            }
        }
    }
    const bool isNone = plan.atEntry.empty() && plan.atFileEntry.empty() && plan.atLine.empty();
    return isNone ? nullptr : std::make_shared<const CodePlan>(std::move(plan));
}

const std::string& BreakpointTable::canonicalFileOf(py::handle code) {
    const std::string file = toUtf8(reinterpret_cast<PyCodeObject*>(code.ptr())->co_filename);
    auto known = canonicalFiles_.find(file);
    if (known == canonicalFiles_.end()) {
        // Names of commands would fill it without end.
        if (canonicalFiles_.size() >= maxCanonicalFiles) {
            canonicalFiles_.clear();
        }
        known = canonicalFiles_.emplace(file, canonical(file)).first;
    }
    return known->second;
}

void BreakpointTable::forgetPlans() {
    plans_.clear();
    // A working folder that has changed gives relative names another meaning.
    canonicalFiles_.clear();
    files_.clear();
    for (const auto& placed : places_) {
        files_.insert(placed->file);
    }
}

}  // namespace yvm::engine
