// decrypt: decrypts a text, Base64 of an SM2 cipher text, with the encryption key.
'use strict';
const fs = require('fs');
const {Library} = require('kesta-ukey');

async function decrypt() {
    const key = await Library.load().presentKey();
    await key.verifyPin();
    console.log(await key.asymDec(fs.readFileSync(0, 'ascii')));
    await key.close();
}

if (process.argv.length > 2) {
    console.log('usage: decrypt.js <CIPHER-TEXT');
    process.exitCode = process.argv[2] === '--help' ? 0 : 2;
} else {
    decrypt().catch((error) => {
        console.error(`decrypt.js: ${error}`);
        process.exitCode = 1;
    });
}
