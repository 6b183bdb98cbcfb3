// The `table` table. It treats an array and the sequence "1" to "n" of a table alike; since a
// table's keys are text, shifting its sequence moves values from key to key.
#include <algorithm>
#include <bit>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "eval/errors.h"
#include "interpreter/dovrel_script.h"
#include "library/natives.h"
#include "value/numbers.h"
#include "value/operators.h"
#include "value/run_context.h"
#include "value/text.h"

namespace {

bool isSequence(const Variable& value) {
    return value.type == VarType::Array || value.type == VarType::Table;
}

// ------------------------------------------------------------------------ insert and remove

void insertIntoTable(TableStorage& entries, int border, int position, const Variable& value) {
    Variable carried = value;
    for (int i = position; i <= border; ++i) std::swap(entries[intKeyText(i)], carried);
    entries[intKeyText(border + 1)] = std::move(carried);
}

Variable removeFromTable(TableStorage& entries, int border, int position) {
    Variable* gap = &entries[intKeyText(position)];
    Variable removed = std::move(*gap);
    for (int i = position + 1; i <= border; ++i) {
        Variable* const next = &entries[intKeyText(i)];
        *gap = std::move(*next);
        gap = next;
    }
    entries.erase(intKeyText(border)->text);
    return removed;
}

// ------------------------------------------------------------------------ concat

/// Joins the elements from `first` to `last` with one allocation; `elementAt` finds an element by
/// its position.
template <typename ElementAt>
std::string joined(int first, int last, const std::string& separator, ElementAt elementAt) {
    std::size_t size = separator.size() * static_cast<std::size_t>(last - first);
    for (int i = first; i <= last; ++i) size += estimateVariableStringSize(elementAt(i));
    std::string text;
    text.reserve(size);
    for (int i = first; i <= last; ++i) {
        if (i != first) text += separator;
        appendVariableStringFast(text, elementAt(i));
    }
    return text;
}

// ------------------------------------------------------------------------ sort

/// A quicksort, with a heap sort behind it, for any order: also one that contradicts itself or
/// raises. A script's comparator may do both, and so may the default order, by a NaN or by kinds
/// that do not compare. Hence no std::sort: every scan here stops at the bounds of its range, and
/// at each call of the order the items are a permutation of what they were.
template <typename Less>
class GuardedSort {
public:
    GuardedSort(std::vector<Variable*>& items, Less& less) : items_(items), less_(less) {}

    void run() {
        const std::size_t count = items_.size();
        if (count <= kStraightInsertionLimit) {
            insertionSort(0, count);
        } else {
            sortRange(0, count, 2 * (static_cast<int>(std::bit_width(count)) - 1));
        }
    }

private:
    // Scripts see how few elements are sorted, by the calls of their comparator.
    static constexpr std::size_t kStraightInsertionLimit = 8;
    static constexpr std::size_t kSmallRange = 16;

    [[nodiscard]] bool less(std::size_t a, std::size_t b) { return less_(*items_[a], *items_[b]); }

    void insertionSort(std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            std::size_t place = i;
            while (place > begin && less(i, place - 1)) --place;
            Variable* const item = items_[i];
            for (std::size_t k = i; k > place; --k) items_[k] = items_[k - 1];
            items_[place] = item;
        }
    }

    void sortRange(std::size_t begin, std::size_t end, int depthLeft) {
        while (end - begin > kSmallRange) {
            // An order that contradicts itself may not divide the range at all; it ends here too.
            if (depthLeft-- == 0) {
                heapSort(begin, end);
                return;
            }
            const std::size_t cut = partition(begin, end);
            sortRange(cut, end, depthLeft);
            end = cut;
        }
        insertionSort(begin, end);
    }

    /// Moves the median of the second, the middle and the last item to `begin`.
    void chooseMedian(std::size_t begin, std::size_t end) {
        const std::size_t a = begin + 1;
        const std::size_t b = begin + (end - begin) / 2;
        const std::size_t c = end - 1;
        std::size_t median = a;
        if (less(a, b)) {
            if (less(b, c)) {
                median = b;
            } else if (less(a, c)) {
                median = c;
            }
        } else if (!less(a, c)) {
            median = less(b, c) ? c : b;
        }
        std::swap(items_[begin], items_[median]);
    }

    /// Divides the range around a pivot; the result lies in (begin, end].
    std::size_t partition(std::size_t begin, std::size_t end) {
        chooseMedian(begin, end);
        std::size_t low = begin + 1;
        std::size_t high = end;
        for (;;) {
            while (low < end && less(low, begin)) ++low;
            --high;
            while (high > begin && less(begin, high)) --high;
            if (low >= high) return low;
            std::swap(items_[low], items_[high]);
            ++low;
        }
    }

    void heapSort(std::size_t begin, std::size_t end) {
        const std::size_t count = end - begin;
        for (std::size_t root = count / 2; root-- > 0;) siftDown(begin, root, count);
        for (std::size_t last = count; last-- > 1;) {
            std::swap(items_[begin], items_[begin + last]);
            siftDown(begin, 0, last);
        }
    }

    void siftDown(std::size_t begin, std::size_t root, std::size_t count) {
        for (std::size_t child = 2 * root + 1; child < count; child = 2 * root + 1) {
            if (child + 1 < count && less(begin + child, begin + child + 1)) ++child;
            if (!less(begin + root, begin + child)) return;
            std::swap(items_[begin + root], items_[begin + child]);
            root = child;
        }
    }

    std::vector<Variable*>& items_;
    Less& less_;
};

/// The order without a comparator; raises for values that do not compare.
struct DefaultOrder {
    bool operator()(const Variable& a, const Variable& b) const {
        return compareVariables(a, b) < 0;
    }
};

/// The order that a script function defines.
class ComparatorOrder {
public:
    ComparatorOrder(DovrelScript& interpreter, const Variable& comparator)
        : interpreter_(interpreter), comparator_(comparator) {}

    bool operator()(const Variable& a, const Variable& b) {
        // Nothing is called any more on the way to a protected call.
        if (interpreter_.softErrorUnwinding()) return false;
        ArgumentFrame pair(interpreter_.argumentStack, 2);
        pair[0] = a;
        pair[1] = b;
        return isTruthy(interpreter_.invokeCallableFast(comparator_, pair.view()));
    }

private:
    DovrelScript& interpreter_;
    Variable comparator_;  // a copy: the variable that it came from may change during the sort
};

/// Sorts `values` and moves them into `target`, which may be `values` itself, as far as it has
/// places. An order that raises leaves a partly sorted `target`.
template <typename Less>
void sortInto(ArrayStorage& target, ArrayStorage& values, Less less) {
    std::vector<Variable*> items;
    items.reserve(values.size());
    for (Variable& value : values) items.push_back(&value);

    const auto store = [&] {
        ArrayStorage sorted;
        sorted.reserve(items.size());
        for (Variable* item : items) sorted.push_back(std::move(*item));
        const auto count = static_cast<std::ptrdiff_t>(std::min(sorted.size(), target.size()));
        std::move(sorted.begin(), sorted.begin() + count, target.begin());
    };
    try {
        GuardedSort<Less>(items, less).run();
    } catch (...) {
        store();
        throw;
    }
    store();
}

/// Sorts `values` by number if all are ints; false, with nothing changed, if one is not.
bool trySortInts(ArrayStorage& values) {
    std::vector<int> numbers;
    numbers.reserve(values.size());
    for (const Variable& value : values) {
        if (value.type != VarType::Int) return false;
        numbers.push_back(value.asInt());
    }
    std::sort(numbers.begin(), numbers.end());
    for (std::size_t i = 0; i < numbers.size(); ++i) values[i].setInt(numbers[i]);
    return true;
}

void sortByDefaultOrder(ArrayStorage& values) {
    if (!trySortInts(values)) sortInto(values, values, DefaultOrder());
}

void sortArray(DovrelScript& interpreter, ArrayStorage& elements, const Variable* comparator) {
    if (elements.size() < 2) return;
    countWork(32 * elements.size());
    if (comparator == nullptr) {
        sortByDefaultOrder(elements);
        return;
    }
    // The comparator may change the array, so it is shown the elements of a copy.
    ArrayStorage values = elements;
    sortInto(elements, values, ComparatorOrder(interpreter, *comparator));
}

void sortTable(DovrelScript& interpreter, const Shared<TableStorage>& table,
               const Variable* comparator) {
    const int border = interpreter.numericTableLength(table);
    if (border < 2) return;
    countWork(64 * static_cast<std::size_t>(border));
    ArrayStorage values;
    values.reserve(static_cast<std::size_t>(border));
    for (int i = 1; i <= border; ++i) values.push_back((*table)[intKeyText(i)]);
    if (comparator == nullptr) {
        sortByDefaultOrder(values);
    } else {
        sortInto(values, values, ComparatorOrder(interpreter, *comparator));
        if (interpreter.softErrorUnwinding()) return;
    }
    for (int i = 1; i <= border; ++i) {
        (*table)[intKeyText(i)] = std::move(values[static_cast<std::size_t>(i - 1)]);
    }
}

}  // namespace

Variable tableInsertFunction(DovrelScript& interpreter, Arguments args) {
    if (args.size() < 2 || args.size() > 3 || !isSequence(args[0])) {
        throwPlainError("table['insert'](table[, pos], value) requires an array or table");
    }
    const int end = interpreter.arrayLength(args[0]) + 1;
    const int position = args.size() == 3 ? std::clamp(toInt(args[1]), 1, end) : end;
    const Variable& value = args[args.size() - 1];
    if (args[0].type == VarType::Array) {
        ArrayStorage& elements = *args[0].asArray();
        elements.insert(elements.begin() + (position - 1), value);
    } else {
        const Shared<TableStorage>& table = args[0].asTable();
        insertIntoTable(*table, end - 1, position, value);
    }
    return Variable::makeInt(end);
}

Variable tableRemoveFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty() || args.size() > 2 || !isSequence(args[0])) {
        throwPlainError("table['remove'](table[, pos]) requires an array or table");
    }
    const int length = interpreter.arrayLength(args[0]);
    // An empty sequence is left before the position is read, so that any position will do.
    if (length < 1) return Variable();
    const int position = args.size() == 2 ? toInt(args[1]) : length;
    if (position < 1 || position > length) return Variable();
    if (args[0].type == VarType::Array) {
        ArrayStorage& elements = *args[0].asArray();
        const auto place = elements.begin() + (position - 1);
        Variable removed = std::move(*place);
        elements.erase(place);
        return removed;
    }
    const Shared<TableStorage>& table = args[0].asTable();
    return removeFromTable(*table, length, position);
}

Variable tableConcatFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty() || args.size() > 4 || !isSequence(args[0])) {
        throwPlainError("table['concat'](table[, sep[, i[, j]]]) requires an array or table");
    }
    const int length = interpreter.arrayLength(args[0]);
    const std::string separator = args.size() > 1 ? args[1].toString() : std::string();
    const int first = std::max(args.size() > 2 ? toInt(args[2]) : 1, 1);
    const int last = std::min(args.size() > 3 ? toInt(args[3]) : length, length);
    if (last < first) return Variable(std::string());
    if (args[0].type == VarType::Array) {
        const ArrayStorage& elements = *args[0].asArray();
        return Variable(joined(first, last, separator, [&](int position) -> const Variable& {
            return elements[static_cast<std::size_t>(position - 1)];
        }));
    }
    const TableStorage& entries = *args[0].asTable();
    return Variable(joined(first, last, separator, [&](int position) -> const Variable& {
        return entries.at(intKeyText(position));
    }));
}

Variable tableSortFunction(DovrelScript& interpreter, Arguments args) {
    if (args.empty() || args.size() > 2 || !isSequence(args[0])) {
        throwPlainError("table['sort'](table[, comp]) requires an array or table");
    }
    // A copy, since the comparator may overwrite the variable that the container came from.
    Variable container = args[0];
    // Anything but a function is ignored: kept.
    const bool hasComparator = args.size() == 2 && args[1].type == VarType::Function;
    const Variable* const comparator = hasComparator ? &args[1] : nullptr;
    if (container.type == VarType::Array) {
        sortArray(interpreter, *container.asArray(), comparator);
    } else {
        sortTable(interpreter, container.asTable(), comparator);
    }
    return container;
}
