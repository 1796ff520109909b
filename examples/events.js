// events: prints a line for each key that is inserted or removed, until COUNT events have been seen or
// SECONDS have passed.
'use strict';
const {Library} = require('kesta-ukey');

async function follow(count, seconds) {
    const signal = AbortSignal.timeout(seconds * 1000);
    let seen = 0;
    for await (const event of Library.load().events({signal})) {
        console.log(event.kind, event.mediaId);
        if (++seen === count) break;
    }
}

const words = process.argv.slice(2);
if (words.length !== 2) {
    console.log('usage: events.js COUNT SECONDS\n' +
        'exit status: 3 when it ended before COUNT events were seen.');
    process.exitCode = words[0] === '--help' ? 0 : 2;
} else {
    follow(Number(words[0]), Number(words[1])).catch((error) => {
        if (error.name !== 'TimeoutError') console.error(`events.js: ${error}`);
        process.exitCode = error.name === 'TimeoutError' ? 3 : 1;
    });
}
