// The cost of a forwarded call in Node, of a library that does nothing. Prints nanoseconds
// of the processor's time, which other work does not lengthen by much.
'use strict';
const {Library} = require(process.argv[2]);

const library = Library.load(process.argv[3]);

/** The best of several rounds, which other work slows least. */
async function nanoseconds(calls, round) {
    let best = Infinity;
    for (let at = 0; at < 7; ++at) {
        const start = process.cpuUsage();
        const answer = round(calls);
        if (answer) await answer;
        const {user, system} = process.cpuUsage(start);
        best = Math.min(best, 1000 * (user + system) / calls);
    }
    return best.toFixed(1).padStart(8);
}

async function main() {
    const {sync} = library;
    console.log('Node, sync  ', await nanoseconds(200000, (calls) => {
        for (let i = 0; i < calls; ++i) sync.setLabel('SK0001', 'a label');
    }));
    console.log('Node, await ', await nanoseconds(5000, async (calls) => {
        for (let i = 0; i < calls; ++i) await library.setLabel('SK0001', 'a label');
    }));
}

main();
