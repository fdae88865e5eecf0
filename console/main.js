// The console's start: the command metadata (commands.json, next to this page), then each part.
import { setupHistory } from './history.js';
import { setupRelays } from './relays.js';
import { setupRunner } from './runner.js';
import { setupSnapshot } from './snapshot.js';
import { setupUpload } from './upload.js';

async function start() {
  const history = setupHistory();
  setupRelays(history);
  setupUpload(history);
  const snapshot = setupSnapshot();
  try {
    const response = await fetch('commands.json', { cache: 'no-cache' });
    const meta = await response.json();
    setupRunner(meta.commands, history);
    document.getElementById('command-search').placeholder =
      `Search ${meta.commands.length} commands by name or description`;
  } catch (error) {
    document.getElementById('command-details').textContent = `commands.json could not be read: ${error}`;
  }
  await snapshot;
  document.body.dataset.ready = 'yes';
}

start();
