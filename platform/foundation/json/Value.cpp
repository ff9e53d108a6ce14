#include "foundation/json/Value.hpp"

#include <boost/throw_exception.hpp>
#include <boost/variant/get.hpp>

#include <stdexcept>

namespace foundation::json {

static_assert(sizeof(Value) == 16);

Value::Value(Array value) : kind_(Kind::array) {
    storage_.array = new Array(std::move(value));
}

Value::Value(Object value) : kind_(Kind::object) {
    storage_.object = new Object(std::move(value));
}

const char* Value::typeName() const noexcept {
    switch (kind_) {
        case Kind::undefined:
            return traits<Undefined>::name;
        case Kind::null:
            return traits<Null>::name;
        case Kind::boolean:
            return traits<bool>::name;
        case Kind::real:
            return traits<double>::name;
        case Kind::single:
            return traits<float>::name;
        case Kind::int64:
            return traits<std::int64_t>::name;
        case Kind::uint64:
            return traits<std::uint64_t>::name;
        case Kind::string:
            return traits<std::string>::name;
        case Kind::array:
            return traits<Array>::name;
        case Kind::object:
            break;
    }
    return traits<Object>::name;
}

void Value::copyBox(const Value& other) {
    // Not yet an owner of anything, should an allocation throw.
    kind_ = Kind::undefined;
    if (other.kind_ == Kind::string) {
        storage_.string = new std::string(*other.storage_.string);
        kind_ = Kind::string;
        return;
    }

    Value copy;
    struct Task {
        const Value* from;
        Value* to;
    };
    std::vector<Task> pending{{&other, &copy}};
    while (!pending.empty()) {
        const Task task = pending.back();
        pending.pop_back();
        if (task.from->kind_ == Kind::array) {
            const Array& source = *task.from->storage_.array;
            *task.to = Array();
            Array& target = *task.to->storage_.array;
            // Reserved, so that the addresses that wait in `pending` stay good.
            target.reserve(source.size());
            for (const Value& child : source) {
                if (child.isContainer()) {
                    pending.push_back({&child, &target.emplace_back()});
                } else {
                    target.push_back(child);
                }
            }
        } else {
            *task.to = Object();
            Object& target = *task.to->storage_.object;
            for (const auto& [key, child] : *task.from->storage_.object) {
                if (child.isContainer()) {
                    pending.push_back({&child, &target.try_emplace(target.end(), key)->second});
                } else {
                    target.emplace_hint(target.end(), key, child);
                }
            }
        }
    }
    swap(copy);
}

void Value::takeNestedContainers(Value& parent, std::vector<Value>& pending) {
    const auto take = [&pending](Value& child) {
        if (child.isContainer()) {
            pending.push_back(std::move(child));
        }
    };
    if (parent.kind_ == Kind::array) {
        for (Value& child : *parent.storage_.array) {
            take(child);
        }
    } else {
        for (auto& member : *parent.storage_.object) {
            take(member.second);
        }
    }
}

void Value::destroyBox() noexcept {
    if (kind_ == Kind::string) {
        delete storage_.string;
        return;
    }
    // Each container is emptied of its nested ones before it goes, so that no destructor calls another one in
    // turn.
    std::vector<Value> pending;
    Value current(std::move(*this));
    for (;;) {
        takeNestedContainers(current, pending);
        if (current.kind_ == Kind::array) {
            delete current.storage_.array;
        } else {
            delete current.storage_.object;
        }
        current.kind_ = Kind::undefined;
        if (pending.empty()) {
            return;
        }
        current.swap(pending.back());
        pending.pop_back();
    }
}

bool Value::equalScalars(const Value& left, const Value& right) {
    switch (left.kind_) {
        case Kind::boolean:
            return left.storage_.boolean == right.storage_.boolean;
        case Kind::real:
            return left.storage_.real == right.storage_.real;
        case Kind::single:
            return left.storage_.single == right.storage_.single;
        case Kind::int64:
            return left.storage_.int64 == right.storage_.int64;
        case Kind::uint64:
            return left.storage_.uint64 == right.storage_.uint64;
        case Kind::string:
            return *left.storage_.string == *right.storage_.string;
        default:
            return true;
    }
}

bool Value::equal(const Value& left, const Value& right) {
    struct Pair {
        const Value* left;
        const Value* right;
    };
    std::vector<Pair> pending;
    Pair pair{&left, &right};
    for (;;) {
        if (pair.left->kind_ != pair.right->kind_) {
            return false;
        }
        if (pair.left->kind_ == Kind::array) {
            const Array& lefts = *pair.left->storage_.array;
            const Array& rights = *pair.right->storage_.array;
            if (lefts.size() != rights.size()) {
                return false;
            }
            for (std::size_t i = 0; i < lefts.size(); ++i) {
                pending.push_back({&lefts[i], &rights[i]});
            }
        } else if (pair.left->kind_ == Kind::object) {
            const Object& lefts = *pair.left->storage_.object;
            const Object& rights = *pair.right->storage_.object;
            if (lefts.size() != rights.size()) {
                return false;
            }
            for (auto l = lefts.begin(), r = rights.begin(); l != lefts.end(); ++l, ++r) {
                if (l->first != r->first) {
                    return false;
                }
                pending.push_back({&l->second, &r->second});
            }
        } else if (!equalScalars(*pair.left, *pair.right)) {
            return false;
        }
        if (pending.empty()) {
            return true;
        }
        pair = pending.back();
        pending.pop_back();
    }
}

void Value::throwBadGet() {
    boost::throw_exception(boost::bad_get());
}

void Value::throwInvalidConversion(const char* wanted) const {
    throw std::runtime_error(std::string("invalid conversion: ") + typeName() + " to " + wanted);
}

}  // namespace foundation::json
