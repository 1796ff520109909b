// verify.js PUBLIC-KEY SIGNATURE TEXT: says "good" or "bad", by sm-crypto alone. The public key is
// the point in hexadecimal, the signature Base64 of DER.
'use strict';
const {sm2} = require('sm-crypto');

const [publicKey, signature, text] = process.argv.slice(2);
const der = Buffer.from(signature, 'base64').toString('hex');
// hash: the text goes through SM3 behind the identity, which sm-crypto sets to 1234567812345678.
const good = sm2.doVerifySignature(text, der, publicKey, {hash: true, der: true});
console.log(good ? 'good' : 'bad');
