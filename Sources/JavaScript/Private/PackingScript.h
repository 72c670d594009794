#pragma once

namespace zem::js {

/// Gives the function `(array, first, shape) => [numbers, text]` of `Packed`: the first number is
/// the count of the elements, the text all texts in a row. It uses no property of a prototype, and
/// only built-in functions that it took when it was made: JavaScript may replace both.
inline constexpr const char* packingScript = R"js(
(function () {
    const { keys } = Object;
    const { isArray } = Array;
    const { parse } = JSON;
    const Numbers = Float64Array;
    const capacity = 8192;
    const longText = 1 << 20;
    const shapes = { __proto__: null };
    let spare;

    // The numbers are those of the native kinds. Beyond its capacity an array keeps no number.
    function add(out, value, shape) {
        const { numbers } = out;
        switch (typeof value) {
        case "undefined": numbers[out.at++] = 0; return true;
        case "boolean": numbers[out.at++] = 2; numbers[out.at++] = value ? 1 : 0; return true;
        case "number": numbers[out.at++] = 3; numbers[out.at++] = value; return true;
        case "string": numbers[out.at++] = 4; addText(out, value); return true;
        case "symbol": numbers[out.at++] = 5; return true;
        case "bigint": numbers[out.at++] = 6; return true;
        case "function": numbers[out.at++] = 9; return true;
        }
        if (value === null) { numbers[out.at++] = 1; return true; }
        if (isArray(value)) return false;
        numbers[out.at++] = 7;
        if (shape === 0) return true;
        return isArray(shape) ? addFields(out, value, shape) : addAll(out, value, shape.of);
    }

    function addText(out, text) {
        out.numbers[out.at++] = text.length;
        out.text += text;
    }

    function addFields(out, value, fields) {
        for (let index = 0; index < fields.length; ++index) {
            const field = fields[index];
            if (!add(out, value[field.name], field.of)) return false;
        }
        return true;
    }

    function addAll(out, value, shape) {
        const names = keys(value);
        out.numbers[out.at++] = names.length;
        for (let index = 0; index < names.length; ++index) {
            const name = names[index];
            addText(out, name);
            if (!add(out, value[name], shape)) return false;
        }
        return true;
    }

    return (array, first, shapeText) => {
        const shape = shapes[shapeText] ??= parse(shapeText);
        // A getter may call this function again, which then needs an array of its own.
        const numbers = spare ?? new Numbers(capacity);
        spare = undefined;
        const out = { numbers, at: 1, text: "" };
        let index = first;
        try {
            const { length } = array;
            for (; index < length && out.text.length < longText; ++index) {
                const { at, text } = out;
                let isWhole = false;
                try {
                    isWhole = add(out, array[index], shape) && out.at <= capacity;
                } finally {
                    if (!isWhole) { out.at = at; out.text = text; }
                }
                if (!isWhole) break;
            }
        } catch {
            // The error is thrown again when that element is read by itself.
        }
        numbers[0] = index - first;
        spare = numbers;
        return [numbers, out.text];
    };
})()
)js";

} // namespace zem::js
