// Compares what other implementations of Arrow read from mdmsg's output with its JSON lines.
//
//   node compare.mjs MODULES READER ARROW JSON
//
// MODULES is the folder node_modules of the readers, READER one of apache-arrow, polars-stream, polars-file and parquet,
// ARROW the file of "decode --format arrow" or "arrow-file", JSON that of "decode --format json" of the same messages.
import { readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join, resolve } from 'node:path';

const [modules, reader, arrowFile, jsonFile] = process.argv.slice(2);
const require = createRequire(join(resolve(modules), 'anchor.js'));

// JSON.parse() rounds integers from 2^53 on; here they become strings, and so does everything that is compared.
const lines = readFileSync(jsonFile, 'utf8').split('\n').filter((line) => line !== '');
const expected = lines.map((line) => JSON.parse(line.replace(/":(-?\d{16,})(?=[,}])/g, '":"$1"')));

const hexOf = (bytes) => Buffer.from(bytes).toString('hex');

// A value as text, the same for both sides. `type` is that of the column.
function textOfJson(value, type) {
  if (value === undefined) return 'null';
  if (typeof value === 'object') {
    return 'hex' in value ? value.hex : `${value.date} ${value.time} ${value.offset}`;
  }
  return /float\(?32/.test(type) ? String(Math.fround(Number(value))) : String(value);
}

// Columns as {name: {type, values}}, with values as text.
function readApacheArrow(bytes) {
  const { tableFromIPC, Type } = require('apache-arrow');
  const table = tableFromIPC(bytes);
  const columns = {};
  table.schema.fields.forEach((field, index) => {
    const type = field.type;
    const values = [];
    const vector = table.getChildAt(index);
    for (const chunk of vector.data) {
      for (let row = 0; row < chunk.length; ++row) {
        if (!chunk.getValid(row)) {
          values.push('null');
        } else if (type.typeId === Type.Timestamp || type.typeId === Type.Int || type.typeId === Type.Float) {
          values.push(String(chunk.values[row]));
        } else if (type.typeId === Type.Utf8) {
          values.push(Buffer.from(chunk.values.subarray(chunk.valueOffsets[row], chunk.valueOffsets[row + 1])).toString('utf8'));
        } else if (type.typeId === Type.Binary) {
          values.push(hexOf(chunk.values.subarray(chunk.valueOffsets[row], chunk.valueOffsets[row + 1])));
        } else {
          values.push(chunk.children.map((part) => part.values[row]).join(' '));
        }
      }
    }
    if (vector.nullCount !== values.filter((value) => value === 'null').length) {
      throw new Error(`${field.name}: ${vector.nullCount} nulls are announced`);
    }
    columns[field.name] = { type: String(type).toLowerCase(), values };
  });
  return columns;
}

function readPolars(frame) {
  const columns = {};
  for (const series of frame.getColumns()) {
    const { Int64, String: Text } = require('nodejs-polars');
    const type = String(series.dtype).toLowerCase();
    // Integers of 64 bits would come as rounded numbers.
    const isWide = type.includes('int64') || type.startsWith('datatype(datetime');
    const values = isWide ? series.cast(Int64).cast(Text).toArray() : series.toArray();
    columns[series.name] = {
      type,
      values: values.map((value) => {
        if (value === null || value.date === null) return 'null';
        if (value instanceof Uint8Array) return hexOf(value);
        if (typeof value === 'object') return `${value.date} ${value.time} ${value.offset}`;
        return String(value);
      }),
    };
  }
  return columns;
}

function read() {
  const bytes = readFileSync(arrowFile);
  // Which polars does not hand to JavaScript.
  const withoutBinary = [...new Set(expected.flatMap(Object.keys))].filter((name) => name !== 'RAW_PAYLOAD');
  switch (reader) {
    case 'apache-arrow':
      return readApacheArrow(bytes);
    case 'polars-stream':
      return readPolars(require('nodejs-polars').readIPCStream(bytes, { columns: withoutBinary }));
    case 'polars-file':
      return readPolars(require('nodejs-polars').readIPC(bytes, { columns: withoutBinary }));
    case 'parquet': {
      // To Parquet and back by another implementation.
      const { Table, writeParquet, readParquet } = require('parquet-wasm');
      return readApacheArrow(readParquet(writeParquet(Table.fromIPCStream(bytes))).intoIPCStream());
    }
    default:
      throw new Error(`unknown reader ${reader}`);
  }
}

const columns = read();
const names = Object.keys(columns);
let compared = 0;
for (const name of names) {
  const { type, values } = columns[name];
  if (values.length !== expected.length) {
    throw new Error(`${name}: ${values.length} rows instead of ${expected.length}`);
  }
  values.forEach((value, row) => {
    const wanted = textOfJson(expected[row][name], type);
    if (value !== wanted) {
      throw new Error(`${name} (${type}) of row ${row}: ${value} instead of ${wanted}`);
    }
    compared += value !== 'null' ? 1 : 0;
  });
}
const present = expected.reduce((count, message) => count + Object.keys(message).filter((name) => names.includes(name)).length, 0);
if (compared === 0 || compared !== present) {
  throw new Error(`${compared} values instead of ${present}`);
}
console.log(`${names.length} columns, ${expected.length} rows, ${compared} values`);
