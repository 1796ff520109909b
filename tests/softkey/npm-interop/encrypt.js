// encrypt.js PUBLIC-KEY TEXT: the cipher text that sm-crypto makes, as Base64 of the DER form
//   SEQUENCE { x INTEGER, y INTEGER, hash OCTET STRING, cipher OCTET STRING }
// which is what the key takes. The public key is the point in hexadecimal.
'use strict';
const {sm2} = require('sm-crypto');

const HASH_BEFORE_CIPHER = 1;

function element(tag, content) {
    const size = content.length;
    if (size < 0x80) return Buffer.concat([Buffer.from([tag, size]), content]);
    if (size < 0x100) return Buffer.concat([Buffer.from([tag, 0x81, size]), content]);
    return Buffer.concat([Buffer.from([tag, 0x82, size >> 8, size & 0xff]), content]);
}

// As short as it can be, and never negative.
function integer(bytes) {
    let from = 0;
    while (from < bytes.length - 1 && bytes[from] === 0) ++from;
    const sign = bytes[from] >= 0x80 ? Buffer.from([0]) : Buffer.alloc(0);
    return element(0x02, Buffer.concat([sign, bytes.subarray(from)]));
}

const [publicKey, text] = process.argv.slice(2);
const bytes = Buffer.from(sm2.doEncrypt(text, publicKey, HASH_BEFORE_CIPHER), 'hex');
const der = element(0x30, Buffer.concat([
    integer(bytes.subarray(0, 32)),
    integer(bytes.subarray(32, 64)),
    element(0x04, bytes.subarray(64, 96)),
    element(0x04, bytes.subarray(96)),
]));
console.log(der.toString('base64'));
