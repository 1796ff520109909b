// Reads the lines of `sm2_cases make`, judges them by the npm package sm-crypto, and writes its own
// signature and cipher text of each text for `sm2_cases judge`. What it refuses goes to the error output.
'use strict';
const {sm2, sm4} = require('sm-crypto');

const HASH_BEFORE_CIPHER = 1;
let disagreements = 0;
const expect = (holds, what, line) => {
    if (!holds) {
        ++disagreements;
        console.error(`${what}: ${line}`);
    }
};

require('readline').createInterface({input: process.stdin}).on('line', (line) => {
    const [number, point, text, signature, sealed, escrowed, , raw] = line.split(' ');
    const bytes = Array.from(Buffer.from(text, 'hex'));
    expect(sm2.doVerifySignature(bytes, signature, point, {hash: true}), 'a bad signature', line);
    const key = sm2.doDecrypt(raw.slice(4), number, HASH_BEFORE_CIPHER, {output: 'array'});
    expect(key.length === 16, 'no SM4 key', line);
    if (key.length === 16) {
        const opened = sm4.decrypt(sealed, Buffer.from(key).toString('hex'),
            {padding: 'none', output: 'array'});
        expect(Buffer.from(opened).toString('hex') === escrowed, 'another private number', line);
    }
    const theirs = sm2.doSignature(bytes, number, {hash: true, publicKey: point});
    const cipher = sm2.doEncrypt(bytes, point, HASH_BEFORE_CIPHER);
    console.log(`${number} ${point} ${text} ${theirs} raw:${cipher}`);
}).on('close', () => process.exit(disagreements ? 1 : 0));
