// SPDX-License-Identifier: Apache-2.0
// Reads lines of hex and prints for each what the parser "ber-tlv" takes it for: its objects as JSON, or null.
//   node parse_objects.js FOLDER-OF-THE-PARSER
'use strict';

const path = require('path');
const readline = require('readline');
const {TlvFactory, TlvType} = require(path.resolve(process.argv[2], 'node_modules/ber-tlv'));

function plain(object) {
  const tag = object.tag.toUpperCase();
  return object.type === TlvType.CONSTRUCTED ? {tag, objects: object.items.map(plain)}
                                             : {tag, value: object.value.toString('hex').toUpperCase()};
}

readline.createInterface({input: process.stdin}).on('line', (line) => {
  let objects = null;
  try {
    objects = TlvFactory.parse(line).map(plain);
  } catch (error) {
    // no sequence of whole objects
  }
  console.log(JSON.stringify(objects));
});
