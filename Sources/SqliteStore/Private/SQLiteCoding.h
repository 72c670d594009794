#pragma once

// The JSON forms of the store's values and operations.

#include <zem/SqliteStore/SQLiteOperations.h>
#include <zem/SqliteStore/SQLiteValue.h>
#include <zem/Tessel/Coding.h>

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <utility>

namespace tessel {

/// A bare scalar.
template <>
struct Coding<zem::SQLiteValue> {
    static constexpr std::string_view expected = "a string, a number, a boolean or null";

    // A boolean first: what JavaScript says is true never becomes a number.
    template <class D>
    static Decoded<zem::SQLiteValue> decode(const D& value) {
        switch (const Kind kind = value.kind()) {
        case Kind::boolean:
            return zem::SQLiteValue(value.boolean());
        case Kind::string:
            return zem::SQLiteValue(value.text());
        case Kind::number:
            return zem::SQLiteValue(value.number());
        case Kind::null:
            return zem::SQLiteValue(nullptr);
        default: {
            DecodingError error = DecodingError::mismatch(expected, kind);
            error.message.insert(0, "SQLiteValue.DecodingError, ");
            return std::unexpected(std::move(error));
        }
        }
    }

    template <class E>
    static typename E::Output encode(E& encoder, const zem::SQLiteValue& value) {
        if (const std::string* text = value.string()) {
            return encoder.text(*text);
        }
        if (const double* number = value.number()) {
            return encoder.number(*number);
        }
        if (const bool* boolean = value.boolean()) {
            return encoder.boolean(*boolean);
        }
        return encoder.null();
    }
};

template <>
struct RawTexts<zem::SQLiteOperationType> {
    static constexpr auto& table = zem::sqliteOperationTypeTexts;
};

/// One flat object: "type", and beside it the fields of the record that the type names. Only read.
template <>
struct Coding<zem::SQLiteOperation> {
    static constexpr std::string_view expected = "an object";

    template <class D>
    static Decoded<zem::SQLiteOperation> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::object) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        static const FieldName typeName("type");
        const auto type = decodeField<zem::SQLiteOperationType>(value, typeName);
        if (!type) {
            return std::unexpected(type.error());
        }
        if (*type == zem::SQLiteOperationType::delete_) {
            return decodeRecord<zem::SQLiteDelete>(value);
        }
        return decodeRecord<zem::SQLiteUpsert>(value);
    }

  private:
    template <class Record, class D>
    static Decoded<zem::SQLiteOperation> decodeRecord(const D& value) {
        Record record;
        if (Decoded<void> outcome = decodeFields(value, record); !outcome) {
            return std::unexpected(std::move(outcome.error()));
        }
        if constexpr (std::same_as<Record, zem::SQLiteUpsert>) {
            if (Decoded<void> outcome = checkRows(record); !outcome) {
                return std::unexpected(std::move(outcome.error()));
            }
        }
        return zem::SQLiteOperation(std::move(record));
    }

    // A row that is too short would be written with values of the row before it.
    static Decoded<void> checkRows(const zem::SQLiteUpsert& upsert) {
        for (std::size_t index = 0; index < upsert.rows.size(); ++index) {
            if (const std::size_t found = upsert.rows[index].size();
                found != upsert.columns.size()) {
                DecodingError error{{},
                                    fmt::format("expected {} values, one a column, found {}",
                                                upsert.columns.size(), found)};
                return std::unexpected(std::move(error).inElement(index).inField("rows"));
            }
        }
        return {};
    }
};

} // namespace tessel
