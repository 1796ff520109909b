// sign: signs a text with the key, and prints the signature, Base64 of its DER form. The key shows the
// warning and waits until its button is pressed, for as long as SECONDS where they are given.
'use strict';
const {Library} = require('kesta-ukey');

async function sign([text, warning, seconds]) {
    const signal = seconds ? AbortSignal.timeout(Number(seconds) * 1000) : undefined;
    const key = await Library.load().presentKey();
    try {
        await key.verifyPin({signal});
        console.log(await key.sign(text, warning, {signal}));
    } catch (error) {
        if (error.kind !== 'pin-wrong') throw error;
        const tries = await key.pinTries();
        throw new Error(`the PIN is wrong${tries ? `, ${tries.left} tries left` : ''}`);
    }
    await key.close();
}

const words = process.argv.slice(2);
if (words.length < 2 || words.length > 3) {
    console.log('usage: sign.js TEXT WARNING [SECONDS]');
    process.exitCode = words[0] === '--help' ? 0 : 2;
} else {
    sign(words).catch((error) => {
        console.error(`sign.js: ${error}`);
        process.exit(1);
    });
}
