-- A small shop for trying Tallowick: customers, products, orders and their items, a view, and
-- a few thousand rows. Needs MariaDB (it uses the Sequence engine to generate rows).
DROP DATABASE IF EXISTS shop;
CREATE DATABASE shop CHARACTER SET utf8mb4 COLLATE utf8mb4_unicode_ci;
USE shop;

CREATE TABLE customers (
    id INT PRIMARY KEY AUTO_INCREMENT,
    name VARCHAR(120) NOT NULL,
    email VARCHAR(190) NOT NULL UNIQUE,
    city VARCHAR(80) NULL,
    country CHAR(2) NOT NULL DEFAULT 'GB',
    notes TEXT NULL COMMENT 'Free text from the support team',
    created_at DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP
) ENGINE=InnoDB;

CREATE TABLE products (
    id INT PRIMARY KEY AUTO_INCREMENT,
    sku VARCHAR(32) NOT NULL UNIQUE,
    title VARCHAR(200) NOT NULL,
    price DECIMAL(10,2) NOT NULL,
    stock INT NOT NULL DEFAULT 0,
    discontinued TINYINT(1) NOT NULL DEFAULT 0
) ENGINE=InnoDB;

CREATE TABLE orders (
    id INT PRIMARY KEY AUTO_INCREMENT,
    customer_id INT NOT NULL,
    status ENUM('new','paid','shipped','cancelled') NOT NULL DEFAULT 'new',
    ordered_at DATETIME NOT NULL,
    note VARCHAR(255) NULL,
    CONSTRAINT fk_orders_customer FOREIGN KEY (customer_id) REFERENCES customers(id)
) ENGINE=InnoDB;

CREATE TABLE order_items (
    order_id INT NOT NULL,
    line INT NOT NULL,
    product_id INT NOT NULL,
    quantity INT NOT NULL,
    unit_price DECIMAL(10,2) NOT NULL,
    PRIMARY KEY (order_id, line),
    CONSTRAINT fk_items_order FOREIGN KEY (order_id) REFERENCES orders(id),
    CONSTRAINT fk_items_product FOREIGN KEY (product_id) REFERENCES products(id)
) ENGINE=InnoDB;

INSERT INTO customers (name, email, city, country, notes, created_at)
SELECT CONCAT(ELT(1 + seq % 8, 'Ada', 'Grace', 'Linus', 'Margaret', 'Alan', 'Barbara', 'Ken', 'Edsger'), ' ',
              ELT(1 + (seq * 3 + seq DIV 8) % 7, 'Lovelace', 'Hopper', 'Torvalds', 'Hamilton', 'Turing', 'Liskov',
                  'Thompson')),
       CONCAT('customer', seq, '@example.com'),
       ELT(1 + (seq * 5 + seq DIV 3) % 6, 'London', 'Leeds', 'Bristol', 'Glasgow', 'Cardiff', 'Belfast'),
       ELT(1 + seq % 3, 'GB', 'IE', 'FR'),
       IF(seq % 5 = 0, CONCAT('Prefers delivery after ', 8 + seq % 6, ' pm'), NULL),
       '2025-01-01 09:00:00' + INTERVAL seq * 7 HOUR
FROM seq_1_to_600;

-- A customer with NULLs where the schema allows them, and one with a four-byte character.
INSERT INTO customers (name, email, city, country, notes) VALUES
    ('Nobody Known', 'unknown@example.com', NULL, 'GB', NULL),
    ('Mara''s Brooms 🧹', 'mara@example.com', 'Cork', 'IE', 'Apostrophe, emoji and a "quoted" word');

INSERT INTO products (sku, title, price, stock, discontinued)
SELECT CONCAT('SKU-', LPAD(seq, 4, '0')),
       CONCAT(ELT(1 + seq % 6, 'Oak', 'Steel', 'Linen', 'Copper', 'Wool', 'Glass'), ' ',
              ELT(1 + (seq DIV 6) % 5, 'lamp', 'chair', 'basket', 'kettle', 'blanket')),
       ROUND(5 + (seq * 37 % 400) + (seq % 100) / 100, 2),
       seq * 13 % 90,
       seq % 17 = 0
FROM seq_1_to_120;

INSERT INTO orders (customer_id, status, ordered_at, note)
SELECT 1 + (seq * 131 + seq DIV 7) % 600,
       ELT(1 + seq % 4, 'new', 'paid', 'shipped', 'cancelled'),
       '2025-03-01 08:00:00' + INTERVAL seq * 3 HOUR,
       IF(seq % 11 = 0, 'Gift wrap, please', NULL)
FROM seq_1_to_2400;

INSERT INTO order_items (order_id, line, product_id, quantity, unit_price)
SELECT o.seq, l.seq, p.id, 1 + (o.seq * 7 + l.seq * 3) % 5, p.price
FROM seq_1_to_2400 o
JOIN seq_1_to_3 l ON l.seq <= 1 + (o.seq * 13) % 3
JOIN products p ON p.id = 1 + (o.seq * 37 + l.seq * 53 + o.seq DIV 11) % 120;

CREATE VIEW order_totals AS
SELECT o.id AS order_id, c.name AS customer, o.status, o.ordered_at,
       SUM(i.quantity * i.unit_price) AS total
FROM orders o
JOIN customers c ON c.id = o.customer_id
JOIN order_items i ON i.order_id = o.id
GROUP BY o.id, c.name, o.status, o.ordered_at;
